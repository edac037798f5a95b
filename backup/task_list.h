// The task list's steps: the daemon's waiting sequence, and one entry per task.
#pragma once

#include "backup/task_record.h"

struct json_object;  // json-c

/// Results of task_list_to_json when memory runs out.
inline constexpr int TASK_ENTRY_NOT_MADE = -991;
inline constexpr int CHANNEL_ARRAY_NOT_MADE = -992;

/// Asks the daemon for the waiting sequence and keeps it for task_list_to_json, in place of an
/// earlier one.
/// @return 0; CGI_SSCI_FAIL: no reply, or not JSON; CGI_PARSER_JSON_FAIL: a member is missing or
///         "retCode" is not 0; CGI_GET_TASK_SEQUENCE_ERROR: a position above 11
int get_task_sequence_list_from_daemon();

/// Makes the list entry of one task, asking the daemon for its progress when it is starting or
/// running.
/// @param task by value
/// @param entry receives the entry on success, owned by the caller: it prints as a JSON object, but
///         its members cannot be looked up; unchanged otherwise
/// @param maxParallel receives the daemon's limit of parallel tasks when the daemon is asked
/// @return 0; -991 or -992 when memory runs out; CGI_GET_BACKUP_RUNNING_INFO_ERROR or
///         CGI_PARSER_JSON_FAIL for the daemon's reply
int task_list_to_json(TDataBackupConfig task, json_object** entry, int& maxParallel);
