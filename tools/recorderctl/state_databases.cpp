// The databases that the recorder's state is made of.
#include "tools/recorderctl/state_databases.h"

#include "platform/standalone/store/backup_memory.h"
#include "platform/standalone/store/schema.h"
#include "tools/recorderctl/commands.h"

namespace recorderctl {

namespace {

long long number_of(standalone::Migrations steps) {
    return static_cast<long long>(steps.size());
}

}  // namespace

const std::array<StateDatabase, 4>& state_databases() {
    static const std::array<StateDatabase, 4> ALL = {{
        {"config.db", number_of(standalone::config_migrations()), true},
        {"registry.db", number_of(standalone::registry_migrations()), true},
        {"events.db", number_of(standalone::event_migrations()), true},
        {"backupd.db", standalone::known_memory_schema(), false},
    }};
    return ALL;
}

std::string problem_of(const StateDatabase& database, const standalone::DatabaseHealth& health) {
    if (!health.problem.empty()) return health.problem;
    if (health.schema <= database.newest_schema) return "";
    return "newer than schema " + std::to_string(database.newest_schema) +
           ", the newest one known here; use the newer program";
}

void require_sound(const std::string& copy, const StateDatabase& database,
                   const std::string& original) {
    const std::string problem = problem_of(database, standalone::check_database(copy));
    if (!problem.empty()) throw Failure(original + ": " + problem);
}

}  // namespace recorderctl
