// Backup tasks and the daemon's queue, in the configuration database.
#include "platform/standalone/store/task_store.h"

#include <algorithm>
#include <charconv>

#include "platform/nvrcfg.h"
#include "platform/standalone/store/settings_text.h"
#include "platform/standalone/store/task_fields.h"
#include "platform/standalone/store/task_rows.h"

namespace standalone {

namespace {

/// The number of an identifier in its one written form: "7", not "07" or "+7".
std::optional<long long> task_number(const std::string& task_id) {
    long long number = 0;
    const char* end = task_id.data() + task_id.size();
    const auto [stop, error] = std::from_chars(task_id.data(), end, number);
    if (error != std::errc() || stop != end || std::to_string(number) != task_id) return {};
    return number;
}

void store(Statement& statement, int parameter, bool value) {
    statement.bind(parameter, value);
}
void store(Statement& statement, int parameter, int value) {
    statement.bind(parameter, value);
}
void store(Statement& statement, int parameter, float value) {
    statement.bind_real(parameter, value);
}
void store(Statement& statement, int parameter, const std::string& value) {
    statement.bind(parameter, value);
}

using Fields = std::vector<const TaskField*>;

void bind_field(Statement& statement, int parameter, const TaskField& field,
                const TDataBackupConfig& record) {
    std::visit([&](auto member) { store(statement, parameter, record.*member); }, field.member);
}

/// The table has the fields in their order behind the identifier. To have SQLite look for each by
/// its name takes as long again.
void insert_record(Database& database, const TDataBackupConfig& record) {
    std::string sql = "INSERT INTO task VALUES(NULL";
    for (std::size_t field = 0; field < task_fields().size(); ++field) sql += ",?";
    Statement insert = database.prepare(sql + ")");
    int parameter = 0;
    for (const TaskField& field : task_fields()) bind_field(insert, ++parameter, field, record);
    insert.step();
}

/// Writes these fields of a record and reads none of the others.
/// @return whether there is such a task
bool update_record(Database& database, long long number, const TDataBackupConfig& record,
                   const Fields& fields) {
    if (fields.empty()) return read_task(database, number).has_value();
    std::string sql = "UPDATE task SET ";
    for (const TaskField* field : fields) sql.append(field->name).append("=?,");
    sql.back() = ' ';
    Statement update = database.prepare(sql + "WHERE taskID=?");
    int parameter = 0;
    for (const TaskField* field : fields) bind_field(update, ++parameter, *field, record);
    update.bind(++parameter, number).step();
    return database.changes() != 0;
}

void bind_time(Statement& statement, int parameter, std::optional<long long> time) {
    if (time)
        statement.bind(parameter, std::to_string(*time));
    else
        statement.bind_null(parameter);
}

bool parse_text(const std::string& text, bool& value) {
    value = text == "true" || text == "1";
    return value || text == "false" || text == "0";
}

template <typename Number>
bool parse_text(const std::string& text, Number& value) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end;
}

bool parse_text(const std::string& text, std::string& value) {
    value = text;
    return true;
}

bool set_from_text(const TaskField& field, const std::string& text, TDataBackupConfig& record) {
    return std::visit(
        [&](auto member) {
            if (!parse_text(text, record.*member)) return false;
            using Kind = std::remove_reference_t<decltype(record.*member)>;
            if constexpr (std::is_same_v<Kind, int>) return fits_table(field, record.*member);
            return true;
        },
        field.member);
}

}  // namespace

std::list<TDataBackupConfig> TaskStore::list() {
    std::list<TDataBackupConfig> tasks = read_tasks(database_);
    database_.release_pages();  // whoever prints a long list needs room
    return tasks;
}

const std::list<TDataBackupConfig>& TaskStore::known() {
    const Database::Version now = version();
    if (known_version_ == now) return known_;
    known_version_.reset();
    known_.clear();  // never two of them
    known_ = list();
    for (TDataBackupConfig& task : known_) {
        std::ranges::fill(task.password, '\0');
        task.password.clear();
    }
    known_version_ = now;
    return known_;
}

std::optional<TDataBackupConfig> TaskStore::find(const std::string& task_id) {
    const auto number = task_number(task_id);
    if (!number) return {};
    return read_task(database_, *number);
}

int TaskStore::apply_settings(const std::string& text) {
    SettingsText settings;
    if (const int status = SettingsText::parse(text, settings); status != 0) return status;
    return settings.task_id() ? change(*settings.task_id(), settings) : create(settings);
}

int TaskStore::create(const SettingsText& settings) {
    // A change that lost its identifier must not become a nameless task.
    if (!settings.has("taskName")) return NVRCFG_BAD_MEMBER;
    TDataBackupConfig record;
    settings.merge_into(record);
    insert_record(database_, record);
    return 0;
}

int TaskStore::change(const std::string& task_id, const SettingsText& settings) {
    const auto number = task_number(task_id);
    if (!number) return NVRCFG_UNKNOWN_TASK;
    TDataBackupConfig record;
    settings.merge_into(record);
    return update_record(database_, *number, record, settings.fields()) ? 0 : NVRCFG_UNKNOWN_TASK;
}

void TaskStore::remove(const std::string& task_id) {
    const auto number = task_number(task_id);
    if (!number) return;
    // The queue's row goes with the task (ON DELETE CASCADE).
    database_.prepare("DELETE FROM task WHERE taskID = ?").bind(1, *number).step();
}

int TaskStore::set_fields(const std::string& task_id,
                          const std::vector<std::pair<std::string, std::string>>& values) {
    const auto number = task_number(task_id);
    if (!number || !read_task(database_, *number)) return NVRCFG_UNKNOWN_TASK;
    TDataBackupConfig record;
    Fields fields;
    for (const auto& [name, value] : values) {
        const TaskField* field = find_task_field(name);
        if (field == nullptr || !set_from_text(*field, value, record)) return NVRCFG_BAD_MEMBER;
        fields.push_back(field);
    }
    return update_record(database_, *number, record, fields) ? 0 : NVRCFG_UNKNOWN_TASK;
}

void TaskStore::set_state(const std::string& task_id, const TaskState& state) {
    const auto number = task_number(task_id);
    if (!number) return;
    Statement update = database_.prepare(
        "UPDATE task SET status = ?, startTime = coalesce(?, startTime), "
        "endTime = coalesce(?, endTime) WHERE taskID = ?");
    update.bind(1, state.status);
    bind_time(update, 2, state.started);
    bind_time(update, 3, state.ended);
    update.bind(4, *number).step();
}

std::vector<QueuePlace> TaskStore::queue() {
    std::vector<QueuePlace> places;
    Statement row = database_.prepare("SELECT taskID, parallel, cause FROM queue ORDER BY place");
    while (row.step())
        places.push_back({row.text(0), row.integer(1) != 0, static_cast<RunCause>(row.integer(2))});
    return places;
}

void TaskStore::enqueue(QueueEnd end, const QueuePlace& place) {
    const auto number = task_number(place.task_id);
    if (!number) return;
    const char* sql =
        end == QueueEnd::front
            ? "INSERT OR REPLACE INTO queue (taskID, place, parallel, cause) SELECT taskID, "
              "(SELECT coalesce(min(place), 0) - 1 FROM queue), ?, ? FROM task WHERE taskID = ?"
            : "INSERT OR IGNORE INTO queue (taskID, place, parallel, cause) SELECT taskID, "
              "(SELECT coalesce(max(place), 0) + 1 FROM queue), ?, ? FROM task WHERE taskID = ?";
    Statement insert = database_.prepare(sql);
    insert.bind(1, place.parallel).bind(2, static_cast<int>(place.cause)).bind(3, *number).step();
}

void TaskStore::dequeue(const std::string& task_id) {
    const auto number = task_number(task_id);
    if (!number) return;
    database_.prepare("DELETE FROM queue WHERE taskID = ?").bind(1, *number).step();
}

}  // namespace standalone
