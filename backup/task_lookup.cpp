// Looks up one task, and answers the status request.
#include "backup/task_lookup.h"

#include <list>

#include "backup/json_member.h"
#include "backup/operation.h"
#include "backup/recording_backup_function.h"

namespace {

/// Calls `found` with the first task of that identifier.
template <class Found>
int find_task(const char* task_id, Found found) {
    std::list<TDataBackupConfig> tasks;
    if (const int status = read_task_list(tasks); status != 0) return status;
    const std::string wanted = task_id == nullptr ? "" : task_id;
    for (const TDataBackupConfig& task : tasks) {
        if (task.taskID != wanted) continue;
        found(task);
        return 0;
    }
    return CGI_TASK_NOT_FOUND;
}

}  // namespace

int get_task_name_by_task_id(const char* task_id, std::string& name) {
    return find_task(task_id, [&](const TDataBackupConfig& task) { name = task.taskName; });
}

int get_task_status_by_task_id(const char* task_id, std::string& status) {
    return find_task(task_id, [&](const TDataBackupConfig& task) {
        status = table_text(strStatus_Arr, task.status);
    });
}

int get_task_status(json_object** reply, const char* task_id) {
    std::string status;
    // Nobody sees the message: the reply below takes its place, and the debug file gets the code.
    run_operation(reply, "Check FUSE fail.", [&] { get_task_status_by_task_id(task_id, status); });
    JsonPtr answer = success_reply();
    add_member(answer.get(), "status", status);
    *reply = answer.release();
    return 0;
}
