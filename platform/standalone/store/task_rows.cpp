// Reads task records from the rows of their table: SQLite hands a function all values of a row at
// once, which costs a quarter less than to ask for each, and has no columns of a result to name.
#include "platform/standalone/store/task_rows.h"

#include <sqlite3.h>

#include <exception>

#include "platform/standalone/store/task_fields.h"

namespace standalone {

namespace {

using Tasks = std::list<TDataBackupConfig>;

constexpr char TAKE[] = "take_task";  // what SQL calls the function
constexpr char TASKS[] = "tasks";     // what the list is known as that is handed to it

void take(sqlite3_value* value, bool& to) {
    to = sqlite3_value_int64(value) != 0;
}
void take(sqlite3_value* value, int& to) {
    to = static_cast<int>(sqlite3_value_int64(value));
}
void take(sqlite3_value* value, float& to) {
    to = static_cast<float>(sqlite3_value_double(value));
}
void take(sqlite3_value* value, std::string& to) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
    if (text != nullptr) to.assign(text, static_cast<std::size_t>(sqlite3_value_bytes(value)));
}

void take_record(sqlite3_value** values, TDataBackupConfig& record) {
    record.taskID = std::to_string(sqlite3_value_int64(*values));
    for (const TaskField& field : task_fields()) {
        ++values;
        std::visit([&](auto member) { take(*values, record.*member); }, field.member);
    }
}

/// SQLite calls it with a list and what select_tasks() has behind that. No exception may go through
/// SQLite.
void take_task(sqlite3_context* context, int, sqlite3_value** values) noexcept {
    auto* tasks = static_cast<Tasks*>(sqlite3_value_pointer(values[0], TASKS));
    if (tasks == nullptr) return;
    try {
        take_record(values + 2, tasks->emplace_back());
    } catch (const std::exception&) {
        sqlite3_result_error_nomem(context);
    }
}

/// The table's last column is handed over first, though nobody looks at it there: SQLite then finds
/// the places of a record's columns all at once.
std::string select_tasks(const char* which) {
    std::string columns;
    for (const TaskField& field : task_fields()) columns.append(1, ',').append(field.name);
    return std::string("SELECT ") + TAKE + "(?1,endTime,taskID" + columns + ") FROM task " + which;
}

/// Ready to hand tasks to a list, one a step.
Statement prepare(Database& database, const char* which, Tasks& tasks) {
    database.define(TAKE, take_task);
    Statement row = database.prepare(select_tasks(which));
    row.bind_pointer(1, &tasks, TASKS);
    return row;
}

}  // namespace

std::list<TDataBackupConfig> read_tasks(Database& database) {
    Tasks tasks;
    Statement row = prepare(database, "ORDER BY taskID", tasks);
    while (row.step()) continue;
    return tasks;
}

std::optional<TDataBackupConfig> read_task(Database& database, long long number) {
    Tasks tasks;
    if (!prepare(database, "WHERE taskID = ?2", tasks).bind(2, number).step()) return {};
    return std::move(tasks.front());
}

}  // namespace standalone
