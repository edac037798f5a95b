// Switches tasks on and off, and deletes them.
#include "backup/task_switch.h"

#include <cstdlib>

#include "backup/daemon_client.h"
#include "backup/json_member.h"
#include "backup/operation.h"
#include "backup/recording_backup_function.h"
#include "backup/setting_change.h"
#include "backup/task_lookup.h"
#include "platform/comutil_json.h"
#include "platform/event_ids.h"
#include "platform/recorder_log.h"

namespace {

bool read_is_enable(json_object* request) {
    bool enable = true;
    if (!comutil_get_json_bool_by_key(request, "is_enable", &enable)) {
        DEBUG_LINE("parser json fail\n");
        fail(CGI_PARSER_JSON_FAIL);
    }
    return enable;
}

/// Stores the two members that change; the others stay as they are.
void store_enable(const char* task_id, bool enable) {
    const JsonPtr settings(json_object_new_object());
    add_member(settings.get(), "taskID", task_id);
    add_member(settings.get(), "enable", enable);
    const char* text = json_object_to_json_string(settings.get());
    DEBUG_LINE("pjsonSetTaskObj = %s\n", text);
    store_settings(text);
}

/// Has the daemon stop what runs, whichever task it is.
void stop_running_task() {
    JsonPtr task_info(json_object_new_object());
    add_member(task_info.get(), "start_task", false);
    if (send_task_notice(std::move(task_info)) != 0) {
        DEBUG_LINE("CGI_CHANGE_STATUS_ERROR SSCI fail\n");
        fail(CGI_CHANGE_STATUS_ERROR);
    }
}

void delete_by_daemon(const char* task_id) {
    std::string response;
    if (const int status = request_task_deletion(task_id, response); status != 0) {
        DEBUG_LINE("SSCI_GET fail\n");
        fail(status);
    }
    require(check_delete_reply(response.c_str()));
}

}  // namespace

int check_delete_reply(const char* text) {
    if (text != nullptr) return 0;
    DEBUG_LINE("SSCI response is NULL\n");
    return CGI_SSCI_RESPONSE_NULL;
}

int change_is_enable(json_object** reply, const char* body, const char* task_id) {
    JsonPtr request;
    if (const int result = parse_request_body(body, request); result != 0) return result;
    const char* id = task_id == nullptr ? "" : task_id;
    return run_operation(reply, "Insert task to database fail.", [&] {
        const bool enable = read_is_enable(request.get());
        store_enable(id, enable);
        announce_change();
        std::string name;
        get_task_name_by_task_id(id, name);
        report_change(reply, enable ? events::TASK_ENABLED : events::TASK_DISABLED, name);
    });
}

int delete_backup_task(json_object** reply, const char* task_id, const char* isStop) {
    run_operation(reply, "Delete task fail.", [&] {
        std::string name;  // looked up while the task is still there
        get_task_name_by_task_id(task_id, name);
        if (std::strtol(isStop, nullptr, 10) != 0) stop_running_task();
        delete_by_daemon(task_id);
        report_change(reply, events::TASK_DELETED, name);
    });
    return 0;
}
