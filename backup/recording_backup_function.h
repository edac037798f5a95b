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

// --- tasks ---------------------------------------------------------------------------------------

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

/// Switches task `task_id` on or off and tells the daemon.
/// @param body {"is_enable": boolean}; may be null
/// @param task_id null counts as an empty identifier, which the store refuses
/// @return 0; CGI_INPUT_FORMAT_ERROR for a body that is absent or not JSON, and then the reply slot
///         is left as it was; CGI_PARSER_JSON_FAIL without "is_enable"; the configuration store's
///         status; CGI_CHANGE_STATUS_ERROR when the daemon cannot be told (the change stays stored)
int change_is_enable(json_object** reply, const char* body, const char* task_id);

/// Deletes task `task_id`, by way of the daemon.
/// @param task_id null counts as an empty identifier
/// @param isStop decimal; other than 0: have the daemon stop what runs first, whichever task it is,
///         and delete nothing when that fails
/// @return always 0; the reply alone tells of failures
int delete_backup_task(json_object** reply, const char* task_id, const char* isStop);

/// Starts or stops task `task_id`. While a task runs none is started; the reply names the one that
/// runs. With the file explorer off nothing is done, which the reply tells too.
/// @param body {"is_active": boolean}; may be null
/// @param task_id null counts as an empty identifier
/// @return 0, also when refused; CGI_INPUT_FORMAT_ERROR, CGI_PARSER_JSON_FAIL for the body;
///         CGI_GET_BACKUP_RUNNING_INFO_ERROR, CGI_PARSER_JSON_FAIL for the daemon's answer;
///         CGI_CHANGE_STATUS_ERROR when it took no notice
int active_recording_task(json_object** reply, const char* body, const char* task_id);

/// Starts task `task_id` whatever runs: beside it, or in its place.
/// @param body {"is_force_running": boolean, "is_parallel_running": boolean, may be absent}; may be
///         null
/// @return as active_recording_task
int force_active_recording_task(json_object** reply, const char* body, const char* task_id);

// --- log -----------------------------------------------------------------------------------------

/// Gives the newest 100 events of the backup, as the log service words them.
/// @return 0; the HTTP client's status; CGI_PARSER_JSON_FAIL when the reply is no JSON object
int get_backup_task_log(json_object** reply);

/// Prepares the same events as a CSV file for the web server to send.
/// @param reply untouched on success
/// @param fileName receives the name for the download, "Ostra-RecordingbackLog-20240301.csv" by the
///         local date; unchanged on failure
/// @return 0; the HTTP client's status; CGI_CMD_EXEC_FAIL when the file or its link cannot be made,
///         and then a previous file is still whole
int download_backup_task_log(json_object** reply, std::string* fileName);

// --- remote destination --------------------------------------------------------------------------

/// Proves that a remote SMB share can be used: mounts it, makes the folder, writes 5 MiB and
/// measures. Runs as root from there on.
/// @param body JSON as docs/api.md gives it; may be null
/// @return 0; CGI_INPUT_FORMAT_ERROR, CGI_PARSER_JSON_FAIL, CGI_INVALID_VALUE for a bad body; one
///         of the CGI_MOUNT_ codes; -1 when the folder cannot be made; CGI_CMD_EXEC_FAIL for the
///         test files and the unmounting; CGI_MOUNT_RESULT_FILE_ERR, with the reply slot left as it
///         was, when the local test file cannot be read back
int test_remote_server(json_object** reply, const char* body);

/// Lists the disk shares of the server that the query parameters "ip", "port", "user" and "pwd"
/// name, but for those of the recorder itself.
/// @return 0; CGI_INVALID_VALUE when a parameter is missing; -718 when the tool's output cannot be
///         read; the tool's own exit status, with its output as the reply's message
int get_samba_share(json_object** reply, tagINPUT* input);

/// Tells whether the file explorer is switched on.
/// @return always 0
int check_fuse(json_object** reply);

// --- channels ------------------------------------------------------------------------------------

/// Lists the cameras that can be backed up: the configured ones, then removed ones that still have
/// recordings.
/// @return 0; CGI_GET_CHANNEL_LIST_FAIL when settings or storage cannot be read;
///         CGI_PARSER_JSON_FAIL when a channel's settings lack a member
int get_channel_list(json_object** reply);
