// What the daemon writes into the event log; services/event_log/event_text has the words.
#pragma once

#include <functional>
#include <string>

namespace services {

/// Events of runs. Those up to 0x2315000F are the CGI program's.
enum RunEvent : unsigned {
    RUN_STARTED = 0x23150010,
    RUN_RESUMED = 0x23150011,  ///< taken up again after the daemon's end
    RUN_SUCCEEDED = 0x23150012,
    RUN_FAILED = 0x23150013,
    RUN_CANCELLED = 0x23150014,
    FILE_NOT_COPIED = 0x23150015,
    CONNECTION_LOST = 0x23150016,
    RETENTION_PASS = 0x23150017,
    ROOM_MADE = 0x23150018,  ///< a day was removed from a full share
    SHARE_FULL = 0x23150019,
};

/// Whoever takes the events of runs: write_run_event(), or a test.
using EventSink =
    std::function<void(RunEvent, const std::string& task_name, const std::string& detail)>;

/// Writes an event with the task's name and, where it is not empty, a detail. What cannot be
/// written is printed on standard error instead.
void write_run_event(RunEvent event, const std::string& task_name, const std::string& detail = "");

}  // namespace services
