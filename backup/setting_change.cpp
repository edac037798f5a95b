// Stores, announces and reports a change of a task.
#include "backup/setting_change.h"

#include "backup/daemon_client.h"
#include "backup/operation.h"
#include "backup/recording_backup_function.h"
#include "platform/event_ids.h"
#include "platform/nvrcfg.h"
#include "platform/recorder_log.h"

void store_settings(const std::string& settings) {
    if (const int status = __nvrcfg_set_rr_settings(SOURCE_NAME, __LINE__, settings); status != 0) {
        DEBUG_LINE("nvrcfg_set_rr_settings fail\n");
        fail(status);
    }
}

void announce_change() {
    if (notify_dataBackupd() != 0) {
        DEBUG_LINE("notify_dataBackupd fail\n");
        fail(CGI_CHANGE_STATUS_ERROR);
    }
}

void report_change(json_object** reply, events::Id event, const std::string& task_name) {
    *reply = success_reply().release();
    send_surveillance_setting_log_with_username(event, -1, __ip, __user, events::APPLICATION,
                                                task_name.c_str(), nullptr);
}
