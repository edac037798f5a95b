// Reads create and modify requests, member by member in a fixed order.
#include "backup/task_request.h"

#include <json-c/json.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "backup/operation.h"
#include "backup/task_record.h"
#include "platform/comutil_json.h"
#include "platform/recorder_log.h"

namespace {

constexpr int TEXT_SIZE = 256;
constexpr int MAX_DAYS = 99;

/// One request. Every call reads a member that must be there, or fails.
class Reader {
public:
    explicit Reader(json_object* request) : request_(request) {}

    std::string text(const char* key) const {
        char buffer[TEXT_SIZE] = "";
        if (!comutil_get_json_str_by_key(request_, key, buffer, sizeof buffer)) refuse();
        return buffer;
    }

    int number(const char* key) const {
        int value = 0;
        if (!comutil_get_json_int_by_key(request_, key, &value)) refuse();
        return value;
    }

    bool flag(const char* key) const {
        bool value = false;
        if (!comutil_get_json_bool_by_key(request_, key, &value)) refuse();
        return value;
    }

    template <std::size_t N>
    int row(const char* key, const std::string_view (&table)[N]) const {
        const int index = table_index(table, text(key));
        if (index < 0) refuse(CGI_INVALID_VALUE);
        return index;
    }

    /// A number that may be absent, and then is 0.
    /// @param absent result code for a request without it; 0 allows that
    int optional_number(const char* key, int absent) const {
        int value = 0;
        if (!comutil_get_json_int_by_key(request_, key, &value) && absent != 0) refuse(absent);
        return value;
    }

    /// Channel numbers, joined by ",".
    std::string channels(const char* key) const {
        json_object* list = json_object_object_get(request_, key);
        if (list == nullptr || json_object_is_type(request_, json_type_array)) refuse();
        if (!json_object_is_type(list, json_type_array)) refuse();
        std::string joined;
        for (std::size_t i = 0; i < json_object_array_length(list); ++i) {
            if (i > 0) joined += ',';
            joined += std::to_string(json_object_get_int(json_object_array_get_idx(list, i)));
        }
        return joined;
    }

    json_object* request() const { return request_; }

    [[noreturn]] static void refuse(int code = CGI_PARSER_JSON_FAIL) {
        DEBUG_LINE("parser json fail\n");
        fail(code);
    }

private:
    json_object* request_;
};

/// The local date as requests and records have it: the year without padding.
std::string day_text(int seconds) {
    const std::time_t time = seconds;
    tm local{};
    localtime_r(&time, &local);
    char text[64];
    std::snprintf(text, sizeof text, "%d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday);
    return text;
}

/// The optional time range, and the flag behind it: they share the number that the debug lines
/// show.
void read_range(const Reader& reader, TDataBackupConfig& task) {
    int nTime = 0;
    if (comutil_get_json_int_by_key(reader.request(), "backupStartDay", &nTime))
        task.backupStartDay = day_text(nTime);
    if (comutil_get_json_int_by_key(reader.request(), "backupEndDay", &nTime))
        task.backupEndDay = day_text(nTime);
    else
        DEBUG_LINE("nTime = %d\n", nTime);
    if (!comutil_get_json_bool_by_key(reader.request(), "backupImmediately",
                                      &task.backupImmediately)) {
        DEBUG_LINE("nTime = %d\n", nTime);
        fail(CGI_PARSER_JSON_FAIL);
    }
}

void read_destination(const Reader& reader, TDataBackupConfig& task) {
    task.taskName = reader.text("taskName");
    task.serverIP = reader.text("serverIP");
    task.port = reader.number("port");
    task.username = reader.text("username");
    task.password = reader.text("password");
    task.destPath = reader.text("destPath");
}

int read_backup_days(const Reader& reader, bool modify) {
    const int days = reader.optional_number("backupDays", modify ? CGI_INVALID_VALUE : 0);
    if (days > MAX_DAYS) {
        DEBUG_LINE("parser json fail: %d\n", days);
        fail(CGI_INVALID_VALUE);
    }
    return days;
}

void read_schedule(const Reader& reader, TDataBackupConfig& task) {
    task.scheduleType = reader.row("scheduleType", strScheduleType_Arr);
    task.scheduleWeekly = reader.number("scheduleWeekly");
    task.scheduleHour = reader.number("scheduleHour");
    task.scheduleMin = reader.number("scheduleMin");
    task.scheduleEveryHours = reader.number("scheduleEveryHours");
}

/// Clients see which member was refused first, so the order counts. A modify without "backupDays"
/// is an invalid value, one without "remoteKeepRecDays" a missing member; clients rely on both.
void read_task(const Reader& reader, bool modify, TDataBackupConfig& task) {
    read_destination(reader, task);
    task.chIdxList = reader.channels("chIdxList");
    task.backupType = reader.row("backupType", strBackupType_Arr);
    task.backupDays = read_backup_days(reader, modify);
    read_range(reader, task);
    read_schedule(reader, task);
    task.recordingType = reader.row("recordingType", strRecType_Arr);
    task.recordingFormat = reader.row("recordingFormat", strRecFormat_Arr);
    task.remoteKeepRec = reader.flag("remoteKeepRec");
    const int absent = modify ? CGI_PARSER_JSON_FAIL : 0;
    task.remoteKeepRecDays = reader.optional_number("remoteKeepRecDays", absent);
    if (task.remoteKeepRecDays > MAX_DAYS) Reader::refuse(CGI_INVALID_VALUE);
    task.remoteOverwriteType = reader.row("remoteOverwriteType", strRemoteOverwrite_Arr);
}

/// Takes the number before the next dash off `text`.
/// @return false when there is no dash and one is needed
bool take_number(std::string& text, bool dash_needed, int& number) {
    const std::size_t dash = text.find('-');
    if (dash == std::string::npos && dash_needed) return false;
    const long value = std::strtol(text.substr(0, dash).c_str(), nullptr, 10);
    // Room on both sides, so that the tm fields can be derived without overflow.
    number = static_cast<int>(std::clamp<long>(value, INT_MIN + 10000, INT_MAX - 10000));
    text.erase(0, dash == std::string::npos ? dash : dash + 1);
    return true;
}

}  // namespace

int parser_task(TDataBackupConfig* out, const char* body, int modifyMode) {
    TDataBackupConfig task;
    const int result = result_of([&] {
        JsonPtr request;
        require(parse_request_body(body, request));
        read_task(Reader(request.get()), modifyMode == MODIFY_MODE, task);
    });
    if (result == 0) *out = task;
    return result;
}

int str_time_to_tm(std::string text, tm* out, int mode) {
    int year = 0;
    int month = 0;
    if (!take_number(text, true, year) || !take_number(text, true, month)) return -1;
    tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_isdst = -1;
    if (mode == 0) take_number(text, false, time.tm_mday);
    if (mode == 1 &&
        !(take_number(text, true, time.tm_mday) && take_number(text, true, time.tm_hour) &&
          take_number(text, true, time.tm_min) && take_number(text, false, time.tm_sec)))
        return -1;
    *out = time;
    return 0;
}

void get_local_time_str(long seconds, char* dst, int size) {
    if (size <= 0) return;
    const std::time_t time = seconds;
    tm local{};
    if (localtime_r(&time, &local) == nullptr) {
        dst[0] = '\0';
        return;
    }
    std::snprintf(dst, static_cast<std::size_t>(size), "%04d-%02d-%02d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday);
}
