// Creates and modifies tasks: parse, store, tell the daemon, reply.
#include "backup/daemon_client.h"
#include "backup/operation.h"
#include "backup/recording_backup_function.h"
#include "backup/setting_change.h"
#include "backup/task_request.h"
#include "backup/task_settings.h"
#include "platform/event_ids.h"
#include "platform/recorder_log.h"

namespace {

constexpr char FAILED[] = "Insert task to database fail.";

void parse(TDataBackupConfig& task, const char* body, int mode) {
    if (const int result = parser_task(&task, body, mode); result != 0) {
        DEBUG_LINE("parser_task fail\n");
        fail(result);
    }
}

void store(const TDataBackupConfig& task, int mode) {
    std::string settings;
    if (const int status = backupconfig_to_string(task, &settings, mode); status != 0) {
        DEBUG_LINE("parser_task fail\n");
        fail(status);
    }
    store_settings(settings);
}

/// Starts the task at once when the request asked so. After failures too: a task that is stored but
/// not announced starts all the same. What becomes of the start changes neither reply nor result.
void start_if_asked(const TDataBackupConfig& task, bool is_new) {
    if (!task.backupImmediately) return;
    try {
        backup_immediately(task.taskID, task.taskName, is_new);
    } catch (...) {
        DEBUG_LINE("backup_immediately fail\n");
    }
}

}  // namespace

int create_backup_task(json_object** reply, const char* body) {
    TDataBackupConfig task;
    const int result = run_operation(reply, FAILED, [&] {
        parse(task, body, CREATE_MODE);
        task.enable = true;
        task.status = TASK_NEW;
        task.startTime = "";
        task.endTime = "";
        store(task, CREATE_MODE);
        announce_change();
        report_change(reply, events::TASK_CREATED, task.taskName);
    });
    start_if_asked(task, true);
    return result;
}

int modify_backup_task(json_object** reply, const char* body, const char* task_id) {
    TDataBackupConfig task;
    const int result = run_operation(reply, FAILED, [&] {
        parse(task, body, MODIFY_MODE);
        task.taskID = task_id == nullptr ? "" : task_id;
        store(task, MODIFY_MODE);
        announce_change();
        report_change(reply, events::TASK_MODIFIED, task.taskName);
    });
    start_if_asked(task, false);
    return result;
}
