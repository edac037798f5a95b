// From a task record to the settings text that the configuration store keeps (docs/formats.md).
#pragma once

#include <string>

#include "backup/task_record.h"

/// Builds the settings text of `task`.
/// @param task by value: the caller's record stays as it is
/// @param out receives the text; unchanged when mode 1 cannot read the stored tasks, so callers
///         start from an empty text
/// @param mode 0: a new task, without identifier; 1: a change of the stored task with
///         `task.taskID`, which enables it and, when it has finished, makes it new again; any
///         other: neither
/// @return always 0
int backupconfig_to_string(TDataBackupConfig task, std::string* out, int mode);

/// Erases `pattern` from `text`, going on one character behind each hit: of two neighbouring hits
/// the second stays. Takes json-c's escapes ("\/") back out of paths.
/// @param pattern not empty
void erease_sub_string(const char* pattern, std::string* text);
