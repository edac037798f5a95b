// Every message to and from the backup daemon (docs/formats.md gives them byte for byte).
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "backup/operation.h"

/// Bytes for an identifier in the daemon's replies, its terminator included.
inline constexpr std::size_t TASK_ID_SIZE = 512;

/// Tells the daemon to read the task list again.
/// @return 0 or the HTTP client's status (platform/ssci_client.h)
int notify_dataBackupd();

/// Asks the daemon to start a task now, stopping what runs, and writes the event when the file
/// explorer is on.
/// @param taskID identifier of the task; ignored when `isNewTask`
/// @param taskName for the event
/// @param isNewTask the task was just created: it is the one with the numerically largest
///         identifier
/// @return 0; CGI_CHANGE_STATUS_ERROR when the daemon took no notice; the configuration store's
///         status when the new task cannot be looked up
int backup_immediately(std::string taskID, std::string taskName, bool isNewTask);

/// Sends a notice about one task, or about whatever runs.
/// @param task_info the notice's "task_info", taken over
/// @return 0 or the HTTP client's status
int send_task_notice(JsonPtr task_info);

/// The identifier as notices carry it: the number at its beginning, cut to 32 bits; 0 when there is
/// none.
int notice_task_id(const char* task_id);

/// Has the daemon's configuration service remove a task.
/// @param response receives the reply's text
/// @return 0 or the HTTP client's status
int request_task_deletion(const char* task_id, std::string& response);

/// Asks the daemon for its waiting sequence.
/// @param response receives the reply's text
/// @return 0 or the HTTP client's status
int query_waiting_sequence(std::string& response);

/// What a caller of the readers below writes to the debug file when things go wrong.
struct RunningTaskLines {
    const char* request_failed;  ///< the daemon could not be asked
    const char* empty_reply;     ///< it answered nothing
    const char* member_missing;  ///< a running task lacks a member that is read
    bool show_reply;             ///< write the reply as it came
};

/// Asks the daemon for its running tasks. A step: fails with
/// CGI_GET_BACKUP_RUNNING_INFO_ERROR when the daemon cannot be asked, its reply is no JSON, or the
/// reply's "retCode" is missing or not 0.
/// @return the reply
JsonPtr query_running_tasks(const RunningTaskLines& lines);

/// The reply's running tasks; null when it has no such array.
json_object* running_task_array(json_object* reply);

/// Goes through running tasks in order until `visit` returns false. A step: fails with
/// CGI_PARSER_JSON_FAIL at a task without identifier.
/// @param tasks as running_task_array() gives it; null counts as empty
/// @param visit called with the element and its identifier
void visit_running_tasks(json_object* tasks, const RunningTaskLines& lines,
                         const std::function<bool(json_object*, const char*)>& visit);
