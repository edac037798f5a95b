// Databases as wholes: copied while others use them, checked, held alone.
#include "platform/standalone/store/whole_database.h"

#include <fcntl.h>
#include <sqlite3.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

#include "platform/standalone/store/file_handle.h"

namespace standalone {

namespace {

// Short requests come and go; who is there for longer than this stays.
constexpr std::chrono::milliseconds HOLD_WAIT(500);

constexpr int ALL_PAGES = -1;

void make_new_file(const std::string& path) {
    const FileHandle file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file) throw std::runtime_error("cannot make " + path + ": " + std::strerror(errno));
}

/// All in one step: in several, a writer between two of them would have it begin anew.
void copy_pages(Database& source, Database& copy) {
    sqlite3_backup* backup = sqlite3_backup_init(copy.handle(), "main", source.handle(), "main");
    if (backup != nullptr) sqlite3_backup_step(backup, ALL_PAGES);
    if (sqlite3_backup_finish(backup) != SQLITE_OK || backup == nullptr)
        throw DatabaseError(sqlite3_errmsg(copy.handle()), sqlite3_errcode(copy.handle()) & 0xff);
}

/// SQLite sets a headline before what it has found.
std::string last_line(const std::string& text) {
    const std::size_t end = text.rfind('\n');
    return end == std::string::npos ? text : text.substr(end + 1);
}

}  // namespace

void copy_database(const std::string& from, const std::string& to) {
    make_new_file(to);
    try {
        Database source(from, Database::Access::reading);
        Database copy(to, Database::Access::writing);
        copy_pages(source, copy);
    } catch (const DatabaseError& error) {
        throw std::runtime_error("cannot copy " + from + ": " + error.what());
    }
}

DatabaseHealth check_database(const std::string& path) {
    DatabaseHealth health;
    try {
        Database database(path, Database::Access::reading);
        Statement number = database.prepare("PRAGMA user_version");
        number.step();
        health.schema = number.integer(0);
        Statement check = database.prepare("PRAGMA integrity_check(1)");
        check.step();
        if (check.text(0) != "ok") health.problem = last_line(check.text(0));
    } catch (const DatabaseError& error) {
        health.problem = error.what();
    }
    return health;
}

LoneHold::LoneHold(const std::string& path) : database_(path, Database::Access::writing) {
    database_.limit_waiting(HOLD_WAIT);
    // With a write-ahead log, who is connected has a lock all the time, and this one shuts them all
    // out; otherwise one that does nothing is not noticed.
    database_.run("PRAGMA locking_mode=EXCLUSIVE");
    database_.run("BEGIN EXCLUSIVE");
    // When this ends, a log of that name may be another database's.
    int keep_log = 1;
    sqlite3_file_control(database_.handle(), "main", SQLITE_FCNTL_PERSIST_WAL, &keep_log);
}

std::unique_ptr<LoneHold> LoneHold::take(const std::string& path) {
    try {
        return std::unique_ptr<LoneHold>(new LoneHold(path));
    } catch (const DatabaseError& error) {
        if (error.is_busy()) return nullptr;
        throw;
    }
}

}  // namespace standalone
