// What a task is to keep safe and where, as a text: a success stands for a task with the same text.
#pragma once

#include <string>

#include "backup/task_record.h"

namespace standalone {

/// The members of a task on which hangs what lies on the share after a success, and where: another
/// text, and nobody knows whether all of it is there. Name, schedule and login are not among them.
std::string task_goal(const TDataBackupConfig& task);

}  // namespace standalone
