// The backup daemon's replies, in the task list and in an activation: whatever it answers, what the
// page gets is JSON with values that it knows.
#include <json-c/json.h>

#include <cmath>

#include "backup/recording_backup_function.h"
#include "cgi/result_code.h"
#include "platform/daemon_messages.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"
#include "tests/fuzz/quiet_recorder.h"

namespace {

using fuzz::check;

TDataBackupConfig task(const char* task_id, const std::string& name, int status) {
    TDataBackupConfig record;
    record.taskID = task_id;
    record.taskName = name;
    record.status = status;
    record.chIdxList = "1,3";
    record.backupStartDay = "2024-03-01";
    record.endTime = "1700000000";
    return record;
}

json_object* member(json_object* object, const char* key) {
    return json_object_object_get(object, key);
}

void check_entry(json_object* entry) {
    const int sequence = json_object_get_int(member(entry, "sequence"));
    check(sequence >= -1 && sequence <= LAST_SHOWN_POSITION, "a place is one that is shown");
    check(std::isfinite(json_object_get_double(member(entry, "finishRate"))),
          "a percent is finite");
    const char* rate = json_object_get_string(member(entry, "transferRate"));
    char* end = nullptr;
    check(std::isfinite(std::strtod(rate, &end)) && *end == '\0', "a rate is a number");
}

/// @return the operation's result
int list_tasks() {
    json_object* slot = nullptr;
    const int result = get_backup_task_list(&slot);
    const std::string reply = fuzz::printed(slot);
    check(fuzz::is_json(reply), "the list is JSON");
    check(result == 0 || result == CGI_SSCI_FAIL || result == CGI_PARSER_JSON_FAIL ||
              result == CGI_GET_TASK_SEQUENCE_ERROR || result == CGI_GET_BACKUP_RUNNING_INFO_ERROR,
          "a refusal has its code");
    if (result != 0) return result;
    const JsonPtr list(json_tokener_parse(reply.c_str()));
    json_object* entries = member(list.get(), "task_list");
    check(json_object_array_length(entries) == fuzz::recorder.tasks.size(), "all tasks are listed");
    for (std::size_t i = 0; i < fuzz::recorder.tasks.size(); ++i)
        check_entry(json_object_array_get_idx(entries, i));
    return 0;
}

void activate_task() {
    json_object* slot = nullptr;
    const int result = active_recording_task(&slot, R"({"is_active": true})", "1");
    const std::string reply = fuzz::printed(slot);
    check(!fuzz::is_utf8_text(fuzz::recorder.running_reply) || fuzz::is_json(reply),
          "the answer to an activation is JSON");
    check(result == 0 || result == CGI_PARSER_JSON_FAIL ||
              result == CGI_GET_BACKUP_RUNNING_INFO_ERROR,
          "a refused activation has its code");
}

}  // namespace

// Line by line: the waiting tasks, the running tasks.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = fuzz::text(data, size);
    std::string_view rest = input;
    fuzz::recorder.waiting_reply = fuzz::take_piece(rest, '\n');
    fuzz::recorder.running_reply = rest;
    if (fuzz::recorder.tasks.empty())
        fuzz::recorder.tasks = {task("1", "waits", TASK_WAIT), task("3", "runs", TASK_RUNNING)};
    // An activation would say no more of a reply that is none.
    if (list_tasks() != CGI_GET_BACKUP_RUNNING_INFO_ERROR) activate_task();
    return 0;
}
