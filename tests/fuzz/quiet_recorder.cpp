// Logs into nothing, and answers from memory.
#include "tests/fuzz/quiet_recorder.h"

#include <json-c/json.h>

#include <cstdarg>
#include <cstdio>

#include "platform/daemon_messages.h"
#include "platform/nvrcfg.h"
#include "platform/recorder_log.h"
#include "platform/ssci_client.h"
#include "platform/standalone/store/task_fields.h"
#include "tests/fuzz/fuzz.h"

namespace fuzz {

QuietRecorder recorder;

bool same_record(const TDataBackupConfig& one, const TDataBackupConfig& other) {
    if (one.taskID != other.taskID) return false;
    for (const standalone::TaskField& field : standalone::task_fields()) {
        const auto same = [&](auto member) { return one.*member == other.*member; };
        if (!std::visit(same, field.member)) return false;
    }
    return true;
}

std::string printed(json_object* reply) {
    check(reply != nullptr, "an operation leaves a reply");
    const JsonPtr owned(reply);
    return json_object_to_json_string(reply);
}

}  // namespace fuzz

/// Formats the line all the same, so that the sanitizers see what it reads.
void log_File_Debug(const char*, const char* format, ...) {
    char line[64];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
}

int send_surveillance_setting_log_with_username(unsigned, int, const char*, const char*, ...) {
    return 0;
}

int send_surveillance_event_log(unsigned, int, const char*, ...) {
    return 0;
}

int __nvrcfg_get_rr_settings(const char*, int, std::list<TDataBackupConfig>& out) {
    out.insert(out.end(), fuzz::recorder.tasks.begin(), fuzz::recorder.tasks.end());
    return 0;
}

int __nvrcfg_set_rr_settings(const char*, int, std::string) {
    return 0;
}

int __nvrcfg_get_key_value(const char*, int, const char*, const char*, std::string&, int* error) {
    *error = NVRCFG_KEY_NOT_FOUND;
    return -1;
}

int cfgsvc_get_channel_setting(bool, int, std::string&) {
    return NVRCFG_UNAVAILABLE;
}

int ssci_GET_request(const char*, int, const char*, query_object* query, std::string& response,
                     long, bool, bool, int, char**) {
    const std::string act = (*query)["act"];
    if (act == WAITING_QUERY)
        response = fuzz::recorder.waiting_reply;
    else if (act == RUNNING_QUERY)
        response = fuzz::recorder.running_reply;
    else
        response = fuzz::recorder.log_reply;
    return 0;
}

int ssci_PUT_request(const char*, int, const char*, std::string, std::string&, long, bool, bool,
                     int, char**) {
    return 0;
}

int ssci_DELETE_request(const char*, int, const char*, query_object*, std::string&, long, bool,
                        bool, int, char**) {
    return 0;
}
