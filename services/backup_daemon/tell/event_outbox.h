// Events of runs on their way into the log: what it refuses is kept and written later, in order.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include "services/backup_daemon/tell/run_events.h"

namespace services {

class EventOutbox {
public:
    static constexpr std::size_t MOST_KEPT = 200;
    static constexpr int MOST_AT_ONCE = 10;  ///< each of them waits for the disk

    /// Writes an event behind those that are kept, or keeps it, too. One that is kept is printed on
    /// standard error, lest the daemon's end take it away; when MOST_KEPT are, it is lost.
    void write(RunEvent event, const std::string& task_name, const std::string& detail = "");

    /// Tries to write what is kept, MOST_AT_ONCE of it; once a second or so.
    void write_kept();

private:
    struct Kept {
        RunEvent event;
        std::string task_name;
        std::string detail;
    };
    std::deque<Kept> kept_;
};

}  // namespace services
