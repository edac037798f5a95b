// The numbers that the daemon's database has of problems and of alerts' ways, and their names.
#pragma once

#include <string_view>

namespace standalone {

/// What somebody must look after. The numbers are stored.
enum class ProblemKind {
    run_failed = 0,         ///< a task's newest run that came to its end
    overdue = 1,            ///< a task has not succeeded in its time
    share_nearly_full = 2,  ///< by what it told last
    copies_differ = 3,      ///< a sample of a task's copies has found some not as they were made
};

/// How an alert leaves the recorder. The numbers are stored.
enum class AlertWay {
    mail = 0,
    web_hook = 1,
};

/// As the enumerators are called; "unknown" for any other number.
std::string_view problem_text(ProblemKind kind);

/// The same.
std::string_view way_text(AlertWay way);

}  // namespace standalone
