// What the daemon writes into the event log; services/event_log/event_text has the words.
#pragma once

#include <functional>
#include <string>

#include "platform/event_ids.h"

namespace services {

/// An event of a run; the enumerators are known here without their room.
using RunEvent = events::Id;
using enum events::Id;

/// Whoever takes the events of runs: an EventOutbox, or a test.
using EventSink =
    std::function<void(RunEvent, const std::string& task_name, const std::string& detail)>;

/// Writes an event with the task's name and, where it is not empty, a detail.
/// @return whether the log has taken it
bool try_run_event(RunEvent event, const std::string& task_name, const std::string& detail);

/// Prints an event, and what becomes of it, as one line on standard error.
void print_run_event(RunEvent event, const std::string& task_name, const std::string& detail,
                     const char* fate);

/// Writes an event with the task's name and, where it is not empty, a detail. What cannot be
/// written is printed on standard error instead.
void write_run_event(RunEvent event, const std::string& task_name, const std::string& detail = "");

}  // namespace services
