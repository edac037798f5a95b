// The connections that the platform calls of one thread share: opened when first needed, then kept.
// There is one of each database, so a call for writing must not come while rows are being read, nor
// within a transaction that reads (Database::begin_to_write).
#pragma once

#include <chrono>
#include <vector>

#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/database.h"
#include "platform/standalone/store/event_store.h"
#include "platform/standalone/store/key_value_store.h"

namespace standalone {

/// Limits what each of this thread's connections waits, as Database::limit_waiting() does; those
/// opened from now on.
void limit_waiting(std::chrono::milliseconds longest);

/// What that is for this thread; Database::USUAL_WAIT where nobody has limited it.
std::chrono::milliseconds longest_wait();

/// The configuration database for reading. Any of these calls may throw DatabaseError.
Database& config_for_reading();

/// The channels, over config_for_reading(): read again when somebody has changed the database since
/// this thread's last call. Valid until the next one.
const std::vector<Channel>& config_channels();

/// The configuration database for writing.
Database& config_for_writing();

/// The registry for reading.
Database& registry_for_reading();

/// The registry for writing.
Database& registry_for_writing();

/// The event database for reading.
Database& events_for_reading();

/// The event database for writing.
Database& events_for_writing();

/// The event log, over events_for_writing().
EventStore& event_log();

/// Whether this thread has the event log open.
bool event_log_is_open();

/// The keys, over registry_for_reading().
KeyValueStore& config_keys();

}  // namespace standalone
