// The steps that every change of a task ends with: store it, tell the daemon, reply and leave an
// event.
#pragma once

#include <string>

#include "platform/event_ids.h"

struct json_object;  // json-c

// Steps (backup/operation.h): each fails with the result named.

/// Hands a settings text to the configuration store. Fails with the store's status.
void store_settings(const std::string& settings);

/// Tells the daemon to read the task list again. Fails with CGI_CHANGE_STATUS_ERROR.
void announce_change();

/// Sets the success reply and writes the setting-change event with the caller's address and name.
/// Never fails.
void report_change(json_object** reply, events::Id event, const std::string& task_name);
