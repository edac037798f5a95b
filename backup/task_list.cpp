// Lists the tasks with their queue places, percents and rates.
#include "backup/task_list.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <utility>

#include "backup/daemon_client.h"
#include "backup/entry_text.h"
#include "backup/fuse_status.h"
#include "backup/json_member.h"
#include "backup/operation.h"
#include "backup/recording_backup_function.h"
#include "backup/task_request.h"
#include "platform/comutil_json.h"
#include "platform/daemon_messages.h"
#include "platform/recorder_log.h"
#include "platform/utilities.h"

namespace {

constexpr int DEFAULT_MAX_PARALLEL = 2;
constexpr double BYTES_TO_KIB = 0.0009765625;

// Position in the daemon's queue to task identifier. One position more is taken than is shown.
constexpr int LAST_POSITION = LAST_SHOWN_POSITION + 1;
char gc_strSequence[LAST_POSITION + 1][TASK_ID_SIZE];

constexpr RunningTaskLines LIST_LINES = {
    .request_failed = "SSCI_GET fail",
    .empty_reply = "SSCI respone is ",
    .member_missing = "CGI_GET_BACKUP_RUNNING_INFO_ERROR parser json fail",
    .show_reply = false};

// Whether the file explorer is on: one answer for all entries of a list, asked anew for every list.
std::optional<bool> list_fuse;

/// Percent done, printed as JSON, and KiB per second as text. The defaults are those of a task that
/// does not run, as most tasks of a list do not.
struct Rates {
    std::string finish = "-1.0";
    std::string transfer = "-1.00";
};

/// Keeps one element of the waiting sequence.
int keep_position(json_object* element) {
    int seq = 0;
    if (!comutil_get_json_int_by_key(element, "seq", &seq)) return CGI_PARSER_JSON_FAIL;
    if (seq > LAST_POSITION) return CGI_GET_TASK_SEQUENCE_ERROR;
    char task_id[TASK_ID_SIZE] = "";
    if (!comutil_get_json_str_by_key(element, "taskID", task_id, sizeof task_id))
        return CGI_PARSER_JSON_FAIL;
    if (seq >= 0) std::memcpy(gc_strSequence[seq], task_id, sizeof task_id);
    return 0;
}

int keep_sequence(json_object* sequence) {
    if (!json_object_is_type(sequence, json_type_array)) return CGI_PARSER_JSON_FAIL;
    for (std::size_t i = 0; i < json_object_array_length(sequence); ++i)
        if (const int result = keep_position(json_object_array_get_idx(sequence, i)); result != 0)
            return result;
    return 0;
}

/// The task's place in the waiting sequence, -1 when it does not wait.
int position_of(const std::string& task_id) {
    for (int position = 0; position <= LAST_SHOWN_POSITION; ++position)
        if (std::strcmp(task_id.c_str(), gc_strSequence[position]) == 0) return position;
    return -1;
}

std::string printed(const char* format, double value) {
    char text[512];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

/// A number rounded by printing it, which is how clients round it.
double rounded(const char* format, double value) {
    return std::strtod(printed(format, value).c_str(), nullptr);
}

Rates make_rates(double finish, double transfer) {
    const JsonPtr number(json_object_new_double(finish));
    return {json_object_to_json_string(number.get()), printed("%.2lf", transfer)};
}

/// The rates in one element of the running tasks. What is no finite number (json-c takes 1e999 and
/// NaN) is as good as missing: the page's JSON has no word for it.
Rates read_rates(json_object* element) {
    double finish = 0;
    double transfer = 0;
    if (!comutil_get_json_double_by_key(element, "finishRate", &finish) ||
        !comutil_get_json_double_by_key(element, "transferRate", &transfer) ||
        !std::isfinite(finish) || !std::isfinite(transfer)) {
        DEBUG_LINE("%s\n", LIST_LINES.member_missing);
        fail(CGI_PARSER_JSON_FAIL);
    }
    return make_rates(rounded("%.1lf", finish), rounded("%.4lf", transfer * BYTES_TO_KIB));
}

bool is_running_as(const std::string& task_id, const char* c_strTaskID) {
    DEBUG_LINE("c_strTaskID = %s, mBackupConfig.taskID.c_str() = %s\n", c_strTaskID,
               task_id.c_str());
    return task_id == c_strTaskID;
}

/// Asks the daemon for the rates of a task that is starting or running.
Rates ask_rates(const std::string& task_id, int& maxParallel) {
    const JsonPtr reply = query_running_tasks(LIST_LINES);
    json_object* tasks = running_task_array(reply.get());
    if (!comutil_get_json_int_by_key(reply.get(), "max_parallel_task_num", &maxParallel) ||
        tasks == nullptr) {
        DEBUG_LINE("%s\n", LIST_LINES.member_missing);
        fail(CGI_PARSER_JSON_FAIL);
    }
    if (json_object_array_length(tasks) == 0) return make_rates(-2.0, -2.0);
    Rates rates;
    visit_running_tasks(tasks, LIST_LINES, [&](json_object* element, const char* running_id) {
        if (!is_running_as(task_id, running_id)) return true;
        rates = read_rates(element);
        return false;
    });
    return rates;
}

/// Start of a local day in seconds since the epoch, -1 for a text that is no date.
long long day_start(const std::string& day) {
    tm time{};
    if (day.empty() || str_time_to_tm(day, &time, 0) != 0) return -1;
    return std::mktime(&time);
}

/// An end time as local wall-clock seconds, -1 for none.
long long local_end_time(const std::string& end_time) {
    if (end_time.empty()) return -1;
    const int seconds = static_cast<int>(std::strtol(end_time.c_str(), nullptr, 10));
    return conv_to_local_time(seconds * 1000LL) / 1000;
}

/// "1,3,4" as a JSON array. A comma at the end is followed by an empty piece, which counts as 0.
JsonPtr channel_array(const std::string& list) {
    JsonPtr channels(json_object_new_array());
    if (!channels) fail(CHANNEL_ARRAY_NOT_MADE);
    std::size_t begin = 0;
    while (!list.empty() && begin != std::string::npos) {
        const long channel = std::strtol(list.c_str() + begin, nullptr, 10);
        json_object_array_add(channels.get(), json_object_new_int(static_cast<int>(channel)));
        const std::size_t comma = list.find(',', begin);
        begin = comma == std::string::npos ? comma : comma + 1;
    }
    return channels;
}

void add_connection(EntryText& entry, const TDataBackupConfig& task) {
    entry.add("taskID", task.taskID);
    entry.add("taskName", task.taskName);
    entry.add("serverIP", task.serverIP);
    entry.add("port", task.port);
    entry.add("username", task.username);
    entry.add("password", task.password);
    entry.add("destPath", task.destPath);
}

void add_selection(EntryText& entry, const TDataBackupConfig& task) {
    const JsonPtr channels = channel_array(task.chIdxList);
    entry.add_printed("chIdxList", json_object_to_json_string(channels.get()));
    entry.add_word("backupType", table_text(strBackupType_Arr, task.backupType));
    entry.add("backupDays", task.backupDays);
    entry.add("backupStartDay", task.backupStartDay);
    entry.add("backupEndDay", task.backupEndDay);
    entry.add("backupStartTimeStamp", day_start(task.backupStartDay));
    entry.add("backupEndTimeStamp", day_start(task.backupEndDay));
}

void add_schedule(EntryText& entry, const TDataBackupConfig& task) {
    entry.add("backupImmediately", task.backupImmediately ? 1 : 0);
    entry.add_word("scheduleType", table_text(strScheduleType_Arr, task.scheduleType));
    entry.add("scheduleWeekly", task.scheduleWeekly == 0 ? 7 : task.scheduleWeekly);
    entry.add("scheduleHour", task.scheduleHour);
    entry.add("scheduleMin", task.scheduleMin);
    entry.add("scheduleEveryHours", task.scheduleEveryHours);
}

void add_keeping(EntryText& entry, const TDataBackupConfig& task) {
    entry.add_word("recordingType", table_text(strRecType_Arr, task.recordingType));
    entry.add_word("recordingFormat", table_text(strRecFormat_Arr, task.recordingFormat));
    entry.add("remoteKeepRec", task.remoteKeepRec ? 1 : 0);
    entry.add("remoteKeepRecDays", task.remoteKeepRecDays);
    entry.add_word("remoteOverwriteType",
                   table_text(strRemoteOverwrite_Arr, task.remoteOverwriteType));
}

void add_state(EntryText& entry, const TDataBackupConfig& task, int& maxParallel) {
    entry.add_word("status", table_text(strStatus_Arr, task.status));
    entry.add("enable", task.enable);
    Rates rates;
    if (task.status == TASK_PREPARE_START || task.status == TASK_RUNNING)
        rates = ask_rates(task.taskID, maxParallel);
    entry.add_word("transferRate", rates.transfer);
    entry.add_printed("finishRate", rates.finish);
    entry.add("sequence", position_of(task.taskID));
    entry.add("endTimeStamp", local_end_time(task.endTime));
    entry.add("isFUSE", list_fuse ? *list_fuse : isFileExplorerTurnOn());
}

void fill_list(json_object* list, int& maxParallel) {
    if (const int result = get_task_sequence_list_from_daemon(); result != 0) {
        DEBUG_LINE("get_task_sequence_list_from_daemon fail\n");
        fail(result);
    }
    std::list<TDataBackupConfig> tasks;
    require(read_task_list(tasks));
    if (!tasks.empty()) list_fuse = isFileExplorerTurnOn();
    for (; !tasks.empty(); tasks.pop_front()) {
        json_object* entry = nullptr;
        if (const int nRet = task_list_to_json(std::move(tasks.front()), &entry, maxParallel);
            nRet != 0) {
            DEBUG_LINE("task_list_to_json fail nRet=%d\n", nRet);
            fail(nRet);
        }
        json_object_array_add(list, entry);
    }
}

}  // namespace

int get_task_sequence_list_from_daemon() {
    for (char* slot : gc_strSequence) slot[0] = '\0';
    std::string response;
    if (query_waiting_sequence(response) != 0) {
        DEBUG_LINE("SSCI fail\n");
        return CGI_SSCI_FAIL;
    }
    if (response.empty()) {
        DEBUG_LINE("SSCI respone is \n");
        return CGI_SSCI_FAIL;
    }
    const JsonPtr reply(json_tokener_parse(response.c_str()));
    if (!reply) return CGI_SSCI_FAIL;
    int code = 0;
    if (!comutil_get_json_int_by_key(reply.get(), "retCode", &code)) return CGI_PARSER_JSON_FAIL;
    if (code != 0) {
        DEBUG_LINE("backup server error: get sequence info faile.\n");
        return CGI_PARSER_JSON_FAIL;
    }
    return keep_sequence(json_object_object_get(reply.get(), "watinTask_info"));
}

int task_list_to_json(TDataBackupConfig task, json_object** entry, int& maxParallel) {
    EntryText text;
    const int result = result_of([&] {
        add_connection(text, task);
        add_selection(text, task);
        add_schedule(text, task);
        add_keeping(text, task);
        add_state(text, task, maxParallel);
    });
    if (result != 0) return result;
    JsonPtr made = text.finish();
    if (!made) return TASK_ENTRY_NOT_MADE;
    *entry = made.release();
    return 0;
}

int get_backup_task_list(json_object** reply) {
    DEBUG_LINE("get_backup_task_list\n");
    list_fuse.reset();
    JsonPtr list(json_object_new_array());
    int maxParallel = DEFAULT_MAX_PARALLEL;
    const int result =
        run_operation(reply, "Get task list fail.", [&] { fill_list(list.get(), maxParallel); });
    list_fuse.reset();
    if (result != 0) return result;
    // An exception without a code ends here as well: the client gets the entries made so far.
    JsonPtr answer = success_reply();
    add_member(answer.get(), "task_list", list.release());
    add_member(answer.get(), "max_parallel_task_num", maxParallel);
    *reply = answer.release();
    return 0;
}
