// Whether the recorder's date is to be believed when copies are removed by their age.
#pragma once

#include <optional>
#include <string>

#include "services/backup_daemon/memory/copy_memory.h"

namespace services {

/// What a run makes of the date on which it began.
struct DateJudgement {
    TaskDate known;     ///< to be kept for the task's next run
    std::string doubt;  ///< why the date is not believed, and what to do; "" when it is
};

/// A clock that has jumped years ahead makes all copies look old. So a date is believed that is at
/// most 31 days after the newest one that was believed of the task or, in its first run, after the
/// newest recording. Any other is doubted until runs have gone on under it for more than 31 days,
/// none of them more than 31 days after the one before: then the recorder was off for long. A date
/// that is set back makes no copy older than it was, and is believed.
/// @param known  what is kept of the runs before; nothing in the first
/// @param newest the newest day that there are recordings of; "" when there are none
/// @param today  the local day
DateJudgement judge_date(const std::optional<TaskDate>& known, const std::string& newest,
                         const std::string& today);

}  // namespace services
