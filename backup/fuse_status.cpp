// Reads and reports the switch of the file explorer.
#include "backup/fuse_status.h"

#include <string>

#include "backup/json_member.h"
#include "backup/operation.h"
#include "backup/recording_backup_function.h"
#include "platform/nvrcfg.h"

bool isFileExplorerTurnOn() {
    std::string value;
    int error = 0;
    if (__nvrcfg_get_key_value(SOURCE_NAME, __LINE__, "fuse", "fuse_enabled", value, &error) != 0)
        value = error == NVRCFG_KEY_NOT_FOUND ? "1" : "0";
    return value != "0";
}

int check_fuse(json_object** reply) {
    bool on = true;
    run_operation(reply, "Check FUSE fail.", [&] { on = isFileExplorerTurnOn(); });
    JsonPtr answer = success_reply();
    add_member(answer.get(), "isFUSE", on);
    *reply = answer.release();
    return 0;
}
