// A task's settings as the prescribed list has them.
#pragma once

#include "backup/task_record.h"
#include "console/json.h"

namespace console {

/// All members of an entry of that list that say what a task is to do, but for its password.
Json settings_of(const TDataBackupConfig& task);

}  // namespace console
