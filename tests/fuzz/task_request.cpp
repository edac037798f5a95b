// A request body, stored and read back: what is stored is what was asked for.
#include "backup/task_request.h"

#include <algorithm>

#include "backup/task_settings.h"
#include "cgi/result_code.h"
#include "platform/nvrcfg.h"
#include "platform/standalone/store/settings_text.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"
#include "tests/fuzz/quiet_recorder.h"

namespace {

using fuzz::check;
using standalone::SettingsText;

constexpr std::size_t LONGEST_TEXT = 255;

constexpr std::string TDataBackupConfig::*TEXTS[] = {
    &TDataBackupConfig::taskName, &TDataBackupConfig::serverIP, &TDataBackupConfig::username,
    &TDataBackupConfig::password, &TDataBackupConfig::destPath};

/// Whether the settings text can carry the record: a quotation mark would end its string there.
bool can_be_stored(const TDataBackupConfig& task) {
    return std::ranges::all_of(TEXTS, [&](auto text) {
        return fuzz::is_utf8_text(task.*text) && (task.*text).find('"') == std::string::npos;
    });
}

/// What becomes of a text: its escapes in JSON lose their backslash.
std::string as_stored(const std::string& text) {
    std::string stored;
    for (const char byte : text) {
        constexpr std::string_view SHORT = "\b\n\r\t\f";
        char escape[8] = {byte, '\0'};
        if (const std::size_t place = SHORT.find(byte); place != std::string_view::npos)
            escape[0] = "bnrtf"[place];
        else if (static_cast<unsigned char>(byte) < ' ')
            std::snprintf(escape, sizeof escape, "u%04x", static_cast<unsigned>(byte));
        stored += escape;
    }
    return stored;
}

void check_bounds(const TDataBackupConfig& task) {
    for (const auto text : TEXTS)
        check((task.*text).size() <= LONGEST_TEXT, "a text of a request is cut to its buffer");
    check(task.backupDays <= 99 && task.remoteKeepRecDays <= 99, "days have their limit");
    check(!table_text(strBackupType_Arr, task.backupType).empty() &&
              !table_text(strScheduleType_Arr, task.scheduleType).empty() &&
              !table_text(strRecType_Arr, task.recordingType).empty() &&
              !table_text(strRecFormat_Arr, task.recordingFormat).empty() &&
              !table_text(strRemoteOverwrite_Arr, task.remoteOverwriteType).empty(),
          "an index is a row of its table");
}

/// A record in which every field differs from what a new one has.
TDataBackupConfig stored_task() {
    TDataBackupConfig task;
    task.spareFlag = task.enable = true;
    task.taskID = "7";
    task.taskName = "stored";
    task.status = TASK_FAILED;
    task.startTime = "1700000000";
    task.endTime = "1700000100";
    task.extraValue1 = task.extraValue2 = 1.5F;
    return task;
}

/// What is to be stored when `task`, just read, is printed in a mode.
TDataBackupConfig expected_record(TDataBackupConfig task, int mode) {
    const TDataBackupConfig stored = stored_task();
    for (const auto text : TEXTS) task.*text = as_stored(task.*text);
    task.enable = task.backupImmediately || mode == MODIFY_MODE;
    task.backupImmediately = false;
    if (task.scheduleWeekly == 7) task.scheduleWeekly = 0;
    if (mode == CREATE_MODE) return task;
    task.spareFlag = stored.spareFlag;
    task.taskID = stored.taskID;
    task.status = TASK_NEW;
    task.startTime = stored.startTime;
    task.endTime = stored.endTime;
    task.extraValue1 = stored.extraValue1;
    task.extraValue2 = stored.extraValue2;
    return task;
}

void store_and_read_back(TDataBackupConfig task, int mode) {
    const TDataBackupConfig expected = expected_record(task, mode);
    if (mode == MODIFY_MODE) task.taskID = stored_task().taskID;
    std::string text;
    backupconfig_to_string(task, &text, mode);
    SettingsText settings;
    const int status = SettingsText::parse(text, settings);
    check(status == 0 || status == NVRCFG_BAD_TEXT || status == NVRCFG_BAD_MEMBER,
          "a settings text is read or refused");
    check((status == 0) == can_be_stored(expected),
          "the store reads what the operations write, but for what a text has added to it");
    if (status != 0) return;
    TDataBackupConfig record = mode == MODIFY_MODE ? stored_task() : TDataBackupConfig();
    check(settings.task_id().value_or("") == record.taskID, "a change names its task");
    settings.merge_into(record);
    check(fuzz::same_record(record, expected), "what is stored is what was asked for");
}

/// @return the parser's result
int read_and_store(const std::string& body, int mode) {
    TDataBackupConfig task = stored_task();
    const int result = parser_task(&task, body.c_str(), mode);
    if (result != 0) {
        check(result == CGI_INPUT_FORMAT_ERROR || result == CGI_PARSER_JSON_FAIL ||
                  result == CGI_INVALID_VALUE,
              "a refusal has one of three codes");
        check(fuzz::same_record(task, stored_task()), "a refused body writes nothing");
        return result;
    }
    check_bounds(task);
    store_and_read_back(task, mode);
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string body = fuzz::text(data, size);
    if (fuzz::recorder.tasks.empty()) fuzz::recorder.tasks = {stored_task()};
    // What is no JSON is none in either mode.
    if (read_and_store(body, CREATE_MODE) != CGI_INPUT_FORMAT_ERROR)
        read_and_store(body, MODIFY_MODE);
    return 0;
}
