// What there is to tell of the backups, for people as lines or as JSON.
#pragma once

#include <string>
#include <vector>

#include "platform/standalone/store/backup_status.h"

namespace recorderctl {

/// How much somebody who has little room wants to see a task.
enum class Urgency { has_problems, at_work, well };

/// A row of the table, and what else is to be said at once.
struct TaskText {
    std::vector<std::string> lines;
    Urgency urgency = Urgency::well;
};

/// All of it, for people. No control character is in it.
struct StatusText {
    std::string headline;
    std::vector<std::string> words;  ///< problems and notes, one line each
    std::string table_head;
    std::vector<TaskText> tasks;
    std::string last_line;
};

StatusText status_text(const standalone::BackupStatus& status);

/// The headline, the problems, a line a task.
std::vector<std::string> lines_of(const StatusText& text);

/// Prints one object on one line.
void print_status_json(const standalone::BackupStatus& status);

}  // namespace recorderctl
