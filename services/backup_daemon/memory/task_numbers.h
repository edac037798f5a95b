// The stored tasks as a text that statements of the daemon's database compare with.
#pragma once

#include <list>
#include <string>

#include "backup/task_record.h"

namespace services {

/// The tasks' identifiers as a JSON array of numbers, for json_each().
inline std::string task_numbers(const std::list<TDataBackupConfig>& tasks) {
    std::string array = "[";
    for (const TDataBackupConfig& task : tasks) {
        if (array.size() > 1) array += ',';
        array += task.taskID;
    }
    return array + ']';
}

}  // namespace services
