// Events in words: what a stored event tells an administrator.
#pragma once

#include <string>

#include "platform/standalone/store/event_store.h"

namespace standalone {

/// Application that wrote the event ("Recording Backup"); empty when the event names none.
std::string event_application(const Event& event);

/// Task that the event is about; empty when the event names none.
std::string event_task(const Event& event);

/// What happened, for example "Task created" or "Backup forced: Doors replaced Yard". An identifier
/// that nobody has words for gives "Event 0x6204000A".
std::string event_text(const Event& event);

/// The event's identifier as eight hexadecimal digits: "6204000A".
std::string event_code(const Event& event);

/// Local time with the zone's offset then (ISO 8601): "2024-03-01T13:45:10+01:00".
std::string event_time(const Event& event);

}  // namespace standalone
