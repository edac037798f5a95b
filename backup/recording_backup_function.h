// The operations of the recording backup: everything the front end may call.
#pragma once

#include <string>

#include "backup/task_record.h"

struct json_object;  // json-c
struct tagINPUT;     // platform/cgi_input.h

/// Client address (environment HTTP_X_FORWARDED_FOR, may be null) and name of the authenticated
/// user, for the event log. Set by the front end before it calls an operation.
extern const char* __ip;
extern const char* __user;

// Every operation takes the reply slot first, leaves there the object to print (owned by the
// caller), and returns 0 or a result code (cgi/result_code.h) or the status of whatever failed,
// passed through. On failure the object is the error reply of cgi/reply.h. Texts are NUL-terminated
// and stay the caller's; only those marked so may be null. Nothing throws.

// --- tasks
// -------------------------------------------------------------------------------------------

/// Stores a new task and tells the backup daemon; starts it when the body asks so.
/// @param body JSON as docs/api.md gives it; may be null
/// @return 0; CGI_INPUT_FORMAT_ERROR, CGI_PARSER_JSON_FAIL, CGI_INVALID_VALUE for a bad body; the
///         configuration store's status; CGI_CHANGE_STATUS_ERROR when the daemon cannot be told
///         (the task stays stored)
int create_backup_task(json_object** reply, const char* body);

/// Replaces the settings of task `task_id`; otherwise as create_backup_task.
/// @param body may be null
/// @param task_id null counts as an empty identifier, which the store refuses
int modify_backup_task(json_object** reply, const char* body, const char* task_id);

/// Lists all tasks with queue place, percent and rate.
/// @return 0; CGI_SSCI_FAIL, CGI_GET_TASK_SEQUENCE_ERROR, CGI_GET_BACKUP_RUNNING_INFO_ERROR or
///         CGI_PARSER_JSON_FAIL for the daemon's answers; the configuration store's status
int get_backup_task_list(json_object** reply);

/// Gives the status word of task `task_id`; an empty word when there is no such task.
/// @param task_id null counts as an empty identifier
/// @return always 0
int get_task_status(json_object** reply, const char* task_id);

// --- remote destination
// ------------------------------------------------------------------------------

/// Tells whether the file explorer is switched on.
/// @return always 0
int check_fuse(json_object** reply);
