// Creates databases and brings them up to date, one numbered step after the other.
#include "platform/standalone/store/schema.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "platform/standalone/store/schema_sql.h"

namespace standalone {

namespace {

constexpr std::array CONFIG_STEPS = {CONFIG_SCHEMA_1, CONFIG_SCHEMA_2, CONFIG_SCHEMA_3,
                                     CONFIG_SCHEMA_4};
constexpr std::array REGISTRY_STEPS = {REGISTRY_SCHEMA_1, REGISTRY_SCHEMA_2, REGISTRY_SCHEMA_3,
                                       REGISTRY_SCHEMA_4};
constexpr std::array EVENT_STEPS = {EVENT_SCHEMA_1, EVENT_SCHEMA_2};

/// SQLite gives its side files the mode of the database, so this protects them as well.
void make_private_file(const std::string& path) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    const bool made = file >= 0 && fchmod(file, 0600) == 0;
    const int error = errno;
    if (file >= 0) close(file);
    if (!made) throw std::runtime_error("cannot make " + path + ": " + std::strerror(error));
}

std::size_t schema_number(Database& database) {
    Statement read = database.prepare("PRAGMA user_version");
    read.step();
    return static_cast<std::size_t>(read.integer(0));
}

[[noreturn]] void refuse_newer(const std::string& path, std::size_t number, std::size_t known) {
    throw NewerDatabase(path + " has schema " + std::to_string(number) +
                        ", this program knows schemas up to " + std::to_string(known) +
                        "; use the newer program");
}

void run_missing_steps(Database& database, const std::string& path, Migrations steps) {
    Transaction transaction(database);
    const std::size_t number = schema_number(database);
    if (number > steps.size()) refuse_newer(path, number, steps.size());
    if (number == steps.size()) return;
    for (const char* step : steps.subspan(number)) database.run(step);
    database.run(("PRAGMA user_version = " + std::to_string(steps.size())).c_str());
    transaction.commit();
}

}  // namespace

Migrations config_migrations() {
    return CONFIG_STEPS;
}

Migrations registry_migrations() {
    return REGISTRY_STEPS;
}

Migrations event_migrations() {
    return EVENT_STEPS;
}

void migrate(const std::string& path, Migrations steps, Journal journal) {
    make_private_file(path);
    try {
        Database database(path, Database::Access::writing);
        if (schema_number(database) > steps.size())
            refuse_newer(path, schema_number(database), steps.size());
        const bool ahead = journal == Journal::write_ahead;
        database.prepare(ahead ? "PRAGMA journal_mode=WAL" : "PRAGMA journal_mode=DELETE").step();
        run_missing_steps(database, path, steps);
    } catch (const DatabaseError& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
}

void require_current(Database& database, const std::string& path, Migrations steps) {
    const std::size_t number = schema_number(database);
    if (number > steps.size()) refuse_newer(path, number, steps.size());
    if (number < steps.size())
        throw std::runtime_error(path + " has an older schema; run recorderctl init");
}

}  // namespace standalone
