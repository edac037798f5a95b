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

/// The fields' names, each followed by `suffix`, joined by commas.
std::string columns(const char* suffix = "") {
    std::string list;
    for (const TaskField& field : task_fields()) {
        if (!list.empty()) list += ',';
        list.append(field.name).append(suffix);
    }
    return list;
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

/// Binds the fields from parameter 1 on and gives the number behind the last one.
int bind_record(Statement& statement, const TDataBackupConfig& record) {
    int parameter = 1;
    for (const TaskField& field : task_fields()) {
        std::visit([&](auto member) { store(statement, parameter, record.*member); }, field.member);
        ++parameter;
    }
    return parameter;
}

void insert_record(Database& database, const TDataBackupConfig& record) {
    std::string places = "?";
    while (places.size() < task_fields().size() * 2 - 1) places += ",?";
    Statement insert =
        database.prepare("INSERT INTO task (" + columns() + ") VALUES (" + places + ")");
    bind_record(insert, record);
    insert.step();
}

void update_record(Database& database, long long number, const TDataBackupConfig& record) {
    Statement update = database.prepare("UPDATE task SET " + columns(" = ?") + " WHERE taskID = ?");
    update.bind(bind_record(update, record), number).step();
}

std::optional<TDataBackupConfig> load_task(Database& database, const std::string& task_id) {
    const auto number = task_number(task_id);
    if (!number) return {};
    return read_task(database, *number);
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
    return load_task(database_, task_id);
}

int TaskStore::apply_settings(const std::string& text) {
    SettingsText settings;
    if (const int status = SettingsText::parse(text, settings); status != 0) return status;
    if (!settings.task_id()) return create(settings);
    Transaction transaction(database_);
    auto record = load_task(database_, *settings.task_id());
    if (!record) return NVRCFG_UNKNOWN_TASK;
    settings.merge_into(*record);
    update_record(database_, *task_number(record->taskID), *record);
    transaction.commit();
    return 0;
}

int TaskStore::create(const SettingsText& settings) {
    // A change that lost its identifier must not become a nameless task.
    if (!settings.has("taskName")) return NVRCFG_BAD_MEMBER;
    TDataBackupConfig record;
    settings.merge_into(record);
    Transaction transaction(database_);
    insert_record(database_, record);
    transaction.commit();
    return 0;
}

void TaskStore::remove(const std::string& task_id) {
    const auto number = task_number(task_id);
    if (!number) return;
    // The queue's row goes with the task (ON DELETE CASCADE).
    database_.prepare("DELETE FROM task WHERE taskID = ?").bind(1, *number).step();
}

int TaskStore::set_fields(const std::string& task_id,
                          const std::vector<std::pair<std::string, std::string>>& values) {
    Transaction transaction(database_);
    auto record = load_task(database_, task_id);
    if (!record) return NVRCFG_UNKNOWN_TASK;
    for (const auto& [name, value] : values) {
        const TaskField* field = find_task_field(name);
        if (field == nullptr || !set_from_text(*field, value, *record)) return NVRCFG_BAD_MEMBER;
    }
    update_record(database_, *task_number(task_id), *record);
    transaction.commit();
    return 0;
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
