// The daemon messages that tests expect, and the calls that carry them.
#pragma once

#include <string>

#include "tests/support/fake_platform/fake_platform.h"

inline const std::string RELOAD_NOTICE = R"({ "notice_reason": { "type": 1030, "action": 1 } })";

inline std::string start_notice(const std::string& task_id) {
    return R"({ "notice_reason": { "type": 1030, "action": 1 }, "task_info": { "start_task": )"
           R"(true, )"
           R"("taskID": )" +
           task_id + R"(, "stop_running_task": true, "is_parallel_running": false } })";
}

/// The call that sends `body` to the daemon's notice service.
inline fake::Call notice_call(const std::string& body) {
    return {"ssci_PUT_request",
            {"127.0.0.1", "10205", "/databackupService/notify", body, "5", "false", "false", "0",
             "(null)"}};
}

/// The call that asks the daemon's notice service for `act`.
inline fake::Call query_call(const std::string& act) {
    return {"ssci_GET_request",
            {"127.0.0.1", "10205", "/databackupService/notify", "act=" + act, "5", "false", "false",
             "0", "(null)"}};
}

inline const fake::Call READ_TASKS = {"__nvrcfg_get_rr_settings",
                                      {"recording_backup_function", "line"}};

inline const fake::Call READ_FUSE_SWITCH = {
    "__nvrcfg_get_key_value", {"recording_backup_function", "line", "fuse", "fuse_enabled"}};

inline fake::Call store_call(const std::string& text) {
    return {"__nvrcfg_set_rr_settings", {"recording_backup_function", "line", text}};
}

inline fake::Call start_event(const std::string& task_name) {
    return {"send_surveillance_event_log",
            {"0x23150001", "-1", "127.0.0.1", "Recording Backup", task_name}};
}
