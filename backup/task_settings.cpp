// Builds settings texts.
#include "backup/task_settings.h"

#include <list>

#include "backup/json_member.h"
#include "backup/operation.h"
#include "backup/task_request.h"
#include "platform/utilities.h"

namespace {

/// The object's text without backslashes.
std::string plain_text(json_object* object) {
    std::string text = json_object_to_json_string(object);
    erease_sub_string("\\", &text);
    return text;
}

/// What to copy and how long to keep it, in Base64.
std::string content_text(const TDataBackupConfig& task) {
    const JsonPtr content(json_object_new_object());
    json_object* object = content.get();
    add_member(object, "chIdxList", task.chIdxList);
    add_member(object, "backupType", task.backupType);
    add_member(object, "backupDays", task.backupDays);
    add_member(object, "backupStartDay", task.backupStartDay);
    add_member(object, "backupEndDay", task.backupEndDay);
    // A run at once is asked for by a notice; stored, it would come back with every reload.
    add_member(object, "backupImmediately", false);
    add_member(object, "recordingType", task.recordingType);
    add_member(object, "recordingFormat", task.recordingFormat);
    add_member(object, "remoteKeepRec", task.remoteKeepRec);
    add_member(object, "remoteKeepRecDays", task.remoteKeepRecDays);
    add_member(object, "remoteOverwriteType", task.remoteOverwriteType);
    const std::string text = plain_text(object);
    std::string encoded;
    b64_encode_v2(reinterpret_cast<const unsigned char*>(text.data()),
                  static_cast<unsigned>(text.size()), encoded);
    return encoded;
}

/// Where to copy to, and when.
void add_connection_and_schedule(json_object* settings, const TDataBackupConfig& task) {
    add_member(settings, "taskName", task.taskName);
    add_member(settings, "serverIP", task.serverIP);
    add_member(settings, "port", task.port);
    add_member(settings, "username", task.username);
    add_member(settings, "password", task.password);
    add_member(settings, "destPath", task.destPath);
    add_member(settings, "scheduleType", task.scheduleType);
    add_member(settings, "scheduleWeekly", task.scheduleWeekly == 7 ? 0 : task.scheduleWeekly);
    add_member(settings, "scheduleHour", task.scheduleHour);
    add_member(settings, "scheduleMin", task.scheduleMin);
    add_member(settings, "scheduleEveryHours", task.scheduleEveryHours);
    add_member(settings, "content", content_text(task));
}

void add_new_task(json_object* settings, const TDataBackupConfig& task) {
    add_member(settings, "enable", task.enable);
    add_member(settings, "status", task.status);
    add_member(settings, "startTime", task.startTime);
    add_member(settings, "endTime", task.endTime);
}

bool has_finished(const TDataBackupConfig& task) {
    return task.status == TASK_SUCCESS || task.status == TASK_CANCEL || task.status == TASK_FAILED;
}

/// @return whether the stored tasks could be read
bool add_changed_task(json_object* settings, const TDataBackupConfig& task) {
    add_member(settings, "taskID", task.taskID);
    std::list<TDataBackupConfig> stored_tasks;
    const bool readable = read_task_list(stored_tasks) == 0;
    for (const TDataBackupConfig& stored : stored_tasks)
        if (stored.taskID == task.taskID && has_finished(stored))
            add_member(settings, "status", static_cast<int>(TASK_NEW));
    add_member(settings, "enable", true);
    return readable;
}

}  // namespace

int backupconfig_to_string(TDataBackupConfig task, std::string* out, int mode) {
    const JsonPtr settings(json_object_new_object());
    add_connection_and_schedule(settings.get(), task);
    bool complete = true;
    if (mode == CREATE_MODE) add_new_task(settings.get(), task);
    if (mode == MODIFY_MODE) complete = add_changed_task(settings.get(), task);
    if (task.backupImmediately) add_member(settings.get(), "enable", true);
    if (complete) *out = plain_text(settings.get());
    return 0;
}

void erease_sub_string(const char* pattern, std::string* text) {
    const std::size_t length = std::char_traits<char>::length(pattern);
    for (std::size_t hit = text->find(pattern); hit != std::string::npos;
         hit = text->find(pattern, hit + 1))
        text->erase(hit, length);
}
