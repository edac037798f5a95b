// What all operations share.
#include "backup/operation.h"

#include "backup/json_member.h"
#include "backup/recording_backup_function.h"
#include "platform/nvrcfg.h"
#include "platform/recorder_log.h"

const char* __ip = nullptr;
const char* __user = nullptr;

JsonPtr success_reply() {
    JsonPtr reply(json_object_new_object());
    add_member(reply.get(), "ret_code", 0);
    add_member(reply.get(), "mesg", "Success.");
    return reply;
}

int parse_request_body(const char* body, JsonPtr& request) {
    if (body == nullptr) {
        DEBUG_LINE("input format error\n");
        return CGI_INPUT_FORMAT_ERROR;
    }
    request.reset(json_tokener_parse(body));
    if (!request) {
        DEBUG_LINE("json_tokener_parse fail\n");
        return CGI_INPUT_FORMAT_ERROR;
    }
    return 0;
}

int read_task_list(std::list<TDataBackupConfig>& tasks) {
    const int status = __nvrcfg_get_rr_settings(SOURCE_NAME, __LINE__, tasks);
    if (status != 0) DEBUG_LINE("nvrcfg_get_rr_settings fail\n");
    return status;
}
