// Handles for SQLite: a connection, a prepared statement, a transaction.
#include "platform/standalone/store/database.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>
#include <utility>

#include "platform/standalone/store/database_files.h"

namespace standalone {

namespace {

// EXTRA is FULL, and the removal of a rollback journal is on disk, too: after FULL alone a power
// cut may bring it back, which undoes the last change.
constexpr char FULL[] = "PRAGMA synchronous=EXTRA";
constexpr char DEFERRED[] = "PRAGMA synchronous=NORMAL";

/// Has SQLite count no memory and set no pages aside, a tenth of what a short request takes.
/// Without effect once the first connection is open.
void spare_start_up() {
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
}

std::atomic<long long>& failed_calls() {
    static std::atomic<long long> calls = 0;
    return calls;
}

[[noreturn]] void fail(sqlite3* connection) {
    throw DatabaseError(sqlite3_errmsg(connection), sqlite3_errcode(connection) & 0xff);
}

}  // namespace

DatabaseError::DatabaseError(const std::string& message, int sqlite_code)
    : std::runtime_error(message), code(sqlite_code) {
    ++failed_calls();
}

long long DatabaseError::count() {
    return failed_calls();
}

bool DatabaseError::is_busy() const {
    return code == SQLITE_BUSY;
}

bool DatabaseError::may_pass() const {
    constexpr std::array PASSING = {SQLITE_BUSY,     SQLITE_LOCKED, SQLITE_FULL,    SQLITE_IOERR,
                                    SQLITE_CANTOPEN, SQLITE_NOMEM,  SQLITE_READONLY};
    return std::find(PASSING.begin(), PASSING.end(), code) != PASSING.end();
}

Statement::Statement(sqlite3* connection, std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(connection, sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK) fail(connection);
    statement_.reset(statement);
}

void Statement::Finalize::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

Statement& Statement::bind(int parameter, long long value) {
    if (sqlite3_bind_int64(statement_.get(), parameter, value) != SQLITE_OK)
        fail(sqlite3_db_handle(statement_.get()));
    return *this;
}

Statement& Statement::bind(int parameter, std::string_view value) {
    // An empty view may point nowhere, which SQLite would store as NULL.
    const char* data = value.empty() ? "" : value.data();
    if (sqlite3_bind_text64(statement_.get(), parameter, data, value.size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8) != SQLITE_OK)
        fail(sqlite3_db_handle(statement_.get()));
    return *this;
}

Statement& Statement::bind_real(int parameter, double value) {
    if (sqlite3_bind_double(statement_.get(), parameter, value) != SQLITE_OK)
        fail(sqlite3_db_handle(statement_.get()));
    return *this;
}

Statement& Statement::bind_null(int parameter) {
    if (sqlite3_bind_null(statement_.get(), parameter) != SQLITE_OK)
        fail(sqlite3_db_handle(statement_.get()));
    return *this;
}

Statement& Statement::bind_pointer(int parameter, void* pointer, const char* type) {
    if (sqlite3_bind_pointer(statement_.get(), parameter, pointer, type, nullptr) != SQLITE_OK)
        fail(sqlite3_db_handle(statement_.get()));
    return *this;
}

bool Statement::step() {
    const int code = sqlite3_step(statement_.get());
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    const DatabaseError error(sqlite3_errmsg(sqlite3_db_handle(statement_.get())), code & 0xff);
    sqlite3_reset(statement_.get());
    throw error;
}

void Statement::reset() {
    sqlite3_reset(statement_.get());
}

long long Statement::integer(int column) {
    return sqlite3_column_int64(statement_.get(), column);
}

double Statement::real(int column) {
    return sqlite3_column_double(statement_.get(), column);
}

std::string_view Statement::view(int column) {
    // The column is looked for once. SQLite warns that such a value may be used by one thread
    // alone, as a whole connection of ours is.
    sqlite3_value* value = sqlite3_column_value(statement_.get(), column);
    const auto* data = reinterpret_cast<const char*>(sqlite3_value_text(value));
    if (data == nullptr) return {};
    return {data, static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

bool Statement::is_null(int column) {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

/// What a connection has waited within one second.
struct Database::Waits {
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds WINDOW{1};
    static constexpr std::chrono::milliseconds STEP{5};
    /// What a step counts for at most. When it took longer, the machine had no time for us, and
    /// perhaps none for who holds the database either.
    static constexpr std::chrono::milliseconds MOST{10};

    std::chrono::milliseconds longest;
    Clock::time_point since{};
    Clock::duration spent{};  ///< of the second that began then

    /// A busy handler (sqlite.org/c3ref/busy_handler.html).
    /// A second that is over in the midst of a call gives it no new time: it would wait for ever
    /// where steps take long.
    /// @return whether it is worth while to try again
    static int wait(void* connections, int waited) {
        auto& waits = *static_cast<Waits*>(connections);
        const auto now = Clock::now();
        if (waited == 0 && now - waits.since >= WINDOW) {
            waits.since = now;
            waits.spent = {};
        }
        if (waits.spent >= waits.longest) return 0;
        std::this_thread::sleep_for(STEP);
        waits.spent += std::min<Clock::duration>(Clock::now() - now, MOST);
        return 1;
    }
};

void Database::limit_waiting(std::chrono::milliseconds longest) {
    waits_ = std::make_shared<Waits>(Waits{.longest = longest});
    sqlite3_busy_handler(handle(), Waits::wait, waits_.get());
}

/// Rows that were changed, of some tables.
struct Database::Counted {
    std::set<std::string> tables;
    long long rows = 0;

    /// An update hook (sqlite.org/c3ref/update_hook.html).
    static void note(void* counted, int, const char*, const char* table, sqlite3_int64) {
        auto& mine = *static_cast<Counted*>(counted);
        if (mine.tables.contains(table)) ++mine.rows;
    }
};

void Database::count_rows_of(std::set<std::string> tables) {
    counted_ = std::make_shared<Counted>(Counted{.tables = std::move(tables)});
    sqlite3_update_hook(handle(), Counted::note, counted_.get());
}

long long Database::counted_rows() const {
    return counted_ ? counted_->rows : 0;
}

Database::Database(const std::string& path, Access access, Durability durability) {
    spare_start_up();
    // Readers too may write: the first one to come after a writer was killed has to roll back what
    // that left.
    const int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_READWRITE;
    sqlite3* connection = nullptr;
    const int code = sqlite3_open_v2(path.c_str(), &connection, flags, sparing_files());
    connection_.reset(connection);
    if (connection == nullptr) throw DatabaseError("out of memory", code & 0xff);
    if (code != SQLITE_OK) fail(connection);
    sqlite3_busy_timeout(handle(), static_cast<int>(USUAL_WAIT.count()));
    // The journal's kind is a property of the file (schema.cpp sets it), these belong to the
    // connection.
    if (access == Access::writing) begin_to_write(durability);
}

void Database::begin_to_write(Durability durability) {
    run(durability == Durability::full ? FULL : DEFERRED);
    // As PRAGMA foreign_keys does, without a text to be read.
    if (sqlite3_db_config(handle(), SQLITE_DBCONFIG_ENABLE_FKEY, 1, nullptr) != SQLITE_OK)
        fail(handle());
}

void Database::Close::operator()(sqlite3* connection) const {
    sqlite3_close_v2(connection);
}

Statement Database::prepare(std::string_view sql) {
    return Statement(handle(), sql);
}

void Database::define(const char* name, Function function) {
    if (defined_ == function) return;
    // From nowhere but a statement of our own: not from what the database's file may hold.
    constexpr int FLAGS = SQLITE_UTF8 | SQLITE_DIRECTONLY;
    if (sqlite3_create_function_v2(handle(), name, -1, FLAGS, nullptr, function, nullptr, nullptr,
                                   nullptr) != SQLITE_OK)
        fail(handle());
    defined_ = function;
}

void Database::run(const char* sql) {
    if (sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail(handle());
}

long long Database::last_insert_id() {
    return sqlite3_last_insert_rowid(handle());
}

int Database::changes() {
    return sqlite3_changes(handle());
}

Database::Version Database::version() {
    Statement others = prepare("PRAGMA data_version");
    others.step();
    return {others.integer(0), sqlite3_total_changes64(handle())};
}

bool Database::was_replaced() {
    int replaced = 0;
    sqlite3_file_control(handle(), nullptr, SQLITE_FCNTL_HAS_MOVED, &replaced);
    return replaced != 0;
}

void Database::release_pages() {
    sqlite3_db_release_memory(handle());
}

Transaction::Transaction(Database& database, Database::Access access) : database_(database) {
    database_.run(access == Database::Access::writing ? "BEGIN IMMEDIATE" : "BEGIN");
}

Transaction::~Transaction() {
    // An error may have ended the transaction already; then there is nothing to roll back.
    if (open_ && sqlite3_get_autocommit(database_.handle()) == 0)
        sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
    database_.run("COMMIT");
    open_ = false;
}

}  // namespace standalone
