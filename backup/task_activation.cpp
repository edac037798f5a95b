// Starts, stops and force-starts tasks on demand.
#include <optional>

#include "backup/daemon_client.h"
#include "backup/fuse_status.h"
#include "backup/json_member.h"
#include "backup/operation.h"
#include "backup/recording_backup_function.h"
#include "backup/task_lookup.h"
#include "platform/comutil_json.h"
#include "platform/event_ids.h"
#include "platform/recorder_log.h"
#include "platform/service_addresses.h"

namespace {

constexpr char ACTIVE_FAILED[] = "Active task fail.";
constexpr char FORCE_FAILED[] = "Force active task fail.";

constexpr RunningTaskLines ACTIVE_LINES = {.request_failed = "SSCI_GET fail",
                                           .empty_reply = "SSCI respone is ",
                                           .member_missing = "parser_task fail",
                                           .show_reply = false};
constexpr RunningTaskLines FORCE_LINES = {.request_failed = "fail",
                                          .empty_reply = "respone is ",
                                          .member_missing = "parser_task fail",
                                          .show_reply = true};

/// The task's name, "" for a task that is not stored.
std::string name_of(const char* task_id) {
    std::string name;
    get_task_name_by_task_id(task_id, name);
    return name;
}

/// Identifier of the running task, of the last one when several run; nothing when none does.
std::optional<std::string> running_task(const RunningTaskLines& lines) {
    const JsonPtr reply = query_running_tasks(lines);
    std::optional<std::string> running;
    visit_running_tasks(running_task_array(reply.get()), lines,
                        [&](json_object*, const char* task_id) {
                            running = task_id;
                            return true;
                        });
    return running;
}

bool required_flag(json_object* request, const char* key) {
    bool flag = false;
    if (!comutil_get_json_bool_by_key(request, key, &flag)) {
        DEBUG_LINE("parser json fail\n");
        fail(CGI_PARSER_JSON_FAIL);
    }
    return flag;
}

/// @param running_id the task that stands in the way; nothing when none does
json_object* active_reply(bool fuse, const std::optional<std::string>& running_id) {
    JsonPtr reply = success_reply();
    add_member(reply.get(), "has_running_task", running_id.has_value());
    add_member(reply.get(), "isFUSE", fuse);
    add_member(reply.get(), "taskID", running_id.value_or(""));
    add_member(reply.get(), "taskName", running_id ? name_of(running_id->c_str()) : "");
    return reply.release();
}

void write_event(events::Id event, const std::string& task_name) {
    send_surveillance_event_log(event, -1, LOOPBACK, events::APPLICATION, task_name.c_str(),
                                nullptr);
}

/// @param failed what the debug file says when the daemon takes no notice
void send_notice(JsonPtr task_info, const char* failed) {
    if (send_task_notice(std::move(task_info)) == 0) return;
    DEBUG_LINE("%s\n", failed);
    fail(CGI_CHANGE_STATUS_ERROR);
}

void send_active_notice(const char* task_id, bool start) {
    JsonPtr task_info(json_object_new_object());
    add_member(task_info.get(), "start_task", start);
    add_member(task_info.get(), "taskID", notice_task_id(task_id));
    add_member(task_info.get(), "is_parallel_running", false);
    add_member(task_info.get(), "stop_running_task", true);
    send_notice(std::move(task_info), "SSCI fail");
}

void send_force_notice(const char* task_id, bool stop_running, bool parallel) {
    JsonPtr task_info(json_object_new_object());
    add_member(task_info.get(), "start_task", true);
    add_member(task_info.get(), "taskID", notice_task_id(task_id));
    add_member(task_info.get(), "stop_running_task", stop_running);
    add_member(task_info.get(), "is_parallel_running", parallel);
    send_notice(std::move(task_info), "SSCI put fail");
}

void activate(json_object** reply, json_object* request, const char* task_id) {
    if (!isFileExplorerTurnOn()) {
        write_event(events::ACTIVATION_REFUSED, name_of(task_id));
        *reply = active_reply(false, std::nullopt);
        return;
    }
    const bool start = required_flag(request, "is_active");
    if (start) {
        if (const auto running = running_task(ACTIVE_LINES)) {
            *reply = active_reply(true, running);
            return;
        }
    }
    send_active_notice(task_id, start);
    *reply = active_reply(true, std::nullopt);
    write_event(start ? events::BACKUP_STARTED : events::BACKUP_STOPPED, name_of(task_id));
}

/// "is_parallel_running" of the body, false when it is absent.
bool read_parallel(json_object* request) {
    bool isParallelRunning = false;
    if (comutil_get_json_bool_by_key(request, "is_parallel_running", &isParallelRunning))
        DEBUG_LINE("Get isParallelRunning=%d\n", isParallelRunning);
    return isParallelRunning;
}

void force(json_object** reply, json_object* request, const char* task_id) {
    const std::string running_id = running_task(FORCE_LINES).value_or("");
    const bool parallel = read_parallel(request);
    const bool stop_running = required_flag(request, "is_force_running") && !parallel;
    send_force_notice(task_id, stop_running, parallel);
    const std::string name = name_of(task_id);
    const std::string running_name = name_of(running_id.c_str());
    *reply = success_reply().release();
    if (stop_running)
        send_surveillance_event_log(events::BACKUP_FORCED, -1, LOOPBACK, events::APPLICATION,
                                    name.c_str(), running_name.c_str(), nullptr);
}

/// A bad body has one message, whichever of the two operations got it.
int read_body(json_object** reply, const char* body, JsonPtr& request) {
    const int result = parse_request_body(body, request);
    if (result != 0) deal_with_error_code(reply, reply_code(result), ACTIVE_FAILED);
    return result;
}

}  // namespace

int active_recording_task(json_object** reply, const char* body, const char* task_id) {
    JsonPtr request;
    if (const int result = read_body(reply, body, request); result != 0) return result;
    return run_operation(reply, ACTIVE_FAILED, [&] { activate(reply, request.get(), task_id); });
}

int force_active_recording_task(json_object** reply, const char* body, const char* task_id) {
    JsonPtr request;
    if (const int result = read_body(reply, body, request); result != 0) return result;
    return run_operation(reply, FORCE_FAILED, [&] { force(reply, request.get(), task_id); });
}
