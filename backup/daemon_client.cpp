// Builds, sends and reads the daemon's messages.
#include "backup/daemon_client.h"

#include <algorithm>
#include <cstdlib>

#include "backup/fuse_status.h"
#include "backup/json_member.h"
#include "platform/comutil_json.h"
#include "platform/daemon_messages.h"
#include "platform/event_ids.h"
#include "platform/recorder_log.h"
#include "platform/service_addresses.h"
#include "platform/ssci_client.h"

namespace {

/// A notice without "task_info": read the task list again.
JsonPtr reload_notice() {
    JsonPtr notice(json_object_new_object());
    json_object* reason = json_object_new_object();
    add_member(notice.get(), "notice_reason", reason);
    add_member(reason, "type", NOTICE_TYPE);
    add_member(reason, "action", NOTICE_ACTION);
    return notice;
}

/// The reply is not looked at: a daemon that answers at all has taken the notice.
int put_notice(json_object* notice) {
    std::string response;
    return ssci_PUT_request(LOOPBACK, NOTICE_PORT, NOTICE_PATH, json_object_to_json_string(notice),
                            response, ANSWER_SECONDS, false, false, 0, nullptr);
}

int get_from_daemon(const char* act, std::string& response) {
    query_object query;
    query["act"] = act;
    return ssci_GET_request(LOOPBACK, NOTICE_PORT, NOTICE_PATH, &query, response, ANSWER_SECONDS,
                            false, false, 0, nullptr);
}

/// The largest identifier stored: the store numbers every new task above all others.
int newest_task_id(int& task_id) {
    std::list<TDataBackupConfig> tasks;
    if (const int status = read_task_list(tasks); status != 0) return status;
    long newest = 0;
    for (const TDataBackupConfig& task : tasks)
        newest = std::max(newest, std::strtol(task.taskID.c_str(), nullptr, 10));
    task_id = static_cast<int>(newest);
    return 0;
}

/// Writes one of the debug lines of the running-task query and fails.
[[noreturn]] void fail_running_query(const char* line) {
    DEBUG_LINE("CGI_GET_BACKUP_RUNNING_INFO_ERROR %s\n", line);
    fail(CGI_GET_BACKUP_RUNNING_INFO_ERROR);
}

}  // namespace

int notify_dataBackupd() {
    const int status = put_notice(reload_notice().get());
    if (status != 0) DEBUG_LINE("SSCI put fail\n");
    return status;
}

int send_task_notice(JsonPtr task_info) {
    const JsonPtr notice = reload_notice();
    add_member(notice.get(), "task_info", task_info.release());
    return put_notice(notice.get());
}

int notice_task_id(const char* task_id) {
    return static_cast<int>(std::strtol(task_id == nullptr ? "" : task_id, nullptr, 10));
}

int backup_immediately(std::string taskID, std::string taskName, bool isNewTask) {
    int task_id = 0;
    if (isNewTask) {
        if (const int status = newest_task_id(task_id); status != 0) return status;
    } else {
        task_id = notice_task_id(taskID.c_str());
        DEBUG_LINE("nTaskID0: %d\n", task_id);
    }
    JsonPtr task_info(json_object_new_object());
    add_member(task_info.get(), "start_task", true);
    add_member(task_info.get(), "taskID", task_id);
    add_member(task_info.get(), "stop_running_task", true);
    add_member(task_info.get(), "is_parallel_running", false);
    if (send_task_notice(std::move(task_info)) != 0) {
        DEBUG_LINE("SSCI put fail\n");
        return CGI_CHANGE_STATUS_ERROR;
    }
    if (isFileExplorerTurnOn())
        send_surveillance_event_log(events::BACKUP_STARTED, -1, LOOPBACK, events::APPLICATION,
                                    taskName.c_str(), nullptr);
    return 0;
}

int request_task_deletion(const char* task_id, std::string& response) {
    query_object query;
    query["taskID"] = task_id == nullptr ? "" : task_id;
    return ssci_DELETE_request(LOOPBACK, TASK_PORT, TASK_PATH, &query, response, ANSWER_SECONDS,
                               false, false, 0, nullptr);
}

int query_waiting_sequence(std::string& response) {
    return get_from_daemon(WAITING_QUERY, response);
}

JsonPtr query_running_tasks(const RunningTaskLines& lines) {
    std::string response;
    if (get_from_daemon(RUNNING_QUERY, response) != 0) fail_running_query(lines.request_failed);
    if (lines.show_reply) DEBUG_LINE("strRunningInfoResponse:%s\n", response.c_str());
    if (response.empty()) fail_running_query(lines.empty_reply);
    JsonPtr reply(json_tokener_parse(response.c_str()));
    if (!reply) fail_running_query("json_tokener_parse fail");
    int code = 0;
    if (!comutil_get_json_int_by_key(reply.get(), "retCode", &code))
        fail_running_query("parser json fail");
    if (code != 0) fail_running_query("backup server error: get backup info faile.");
    return reply;
}

json_object* running_task_array(json_object* reply) {
    json_object* tasks = json_object_object_get(reply, "runningTask_info");
    return json_object_is_type(tasks, json_type_array) ? tasks : nullptr;
}

void visit_running_tasks(json_object* tasks, const RunningTaskLines& lines,
                         const std::function<bool(json_object*, const char*)>& visit) {
    const std::size_t count = tasks == nullptr ? 0 : json_object_array_length(tasks);
    char task_id[TASK_ID_SIZE] = "";
    for (std::size_t i = 0; i < count; ++i) {
        json_object* task = json_object_array_get_idx(tasks, i);
        if (!comutil_get_json_str_by_key(task, "taskID", task_id, sizeof task_id)) {
            DEBUG_LINE("%s\n", lines.member_missing);
            fail(CGI_PARSER_JSON_FAIL);
        }
        if (!visit(task, task_id)) return;
    }
}
