// How far the tasks' last runs have come, as the daemon has written it down.
#include "tools/recorderctl/backup_progress.h"

#include "platform/standalone/store/backup_memory.h"
#include "tools/recorderctl/output.h"

namespace recorderctl {

namespace {

using standalone::Statement;

constexpr char PROGRESS[] =
    "SELECT taskID, percent, rate, files_done, files_left, files_failed, bytes_done, "
    "bytes_planned, seconds_left, message, time_ms FROM run_progress ORDER BY taskID";

enum Column {
    TASK,
    PERCENT,
    RATE,
    FILES_DONE,
    FILES_LEFT,
    FILES_FAILED,
    BYTES_DONE,
    BYTES_PLANNED,
    SECONDS_LEFT,
    MESSAGE,
    TIME
};

void print_json(Statement& row) {
    JsonLine line;
    line.add("taskID", row.text(TASK)).add("percent", row.real(PERCENT));
    line.add("rate", row.real(RATE)).add("files_done", row.integer(FILES_DONE));
    line.add("files_left", row.integer(FILES_LEFT)).add("files_failed", row.integer(FILES_FAILED));
    line.add("bytes_done", row.integer(BYTES_DONE));
    line.add("bytes_planned", row.integer(BYTES_PLANNED));
    if (!row.is_null(SECONDS_LEFT)) line.add("seconds_left", row.integer(SECONDS_LEFT));
    line.add("message", row.text(MESSAGE)).add("time_ms", row.integer(TIME)).print();
}

void print_text(Statement& row) {
    print_row({row.text(TASK), local_time(row.integer(TIME)), row.text(PERCENT) + " %",
               std::to_string(static_cast<long long>(row.real(RATE))) + " bytes/s",
               row.text(FILES_DONE) + " files done", row.text(FILES_LEFT) + " left",
               row.text(FILES_FAILED) + " failed", row.text(MESSAGE)});
}

}  // namespace

void print_progress(bool json) {
    standalone::Database memory = standalone::open_backup_memory();
    Statement row = memory.prepare(PROGRESS);
    while (row.step()) {
        if (json)
            print_json(row);
        else
            print_text(row);
    }
}

}  // namespace recorderctl
