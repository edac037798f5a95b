// A state folder as the version before the daemon had a database of its own left it.
#include "tests/support/older_state.h"

#include <cstdlib>

#include "platform/standalone/store/database.h"
#include "tests/support/whole_file.h"

namespace {

void load(const std::string& path, const std::string& sql) {
    write_file(path, "");
    standalone::Database database(path, standalone::Database::Access::writing);
    standalone::Transaction all_at_once(database);
    database.run(sql.c_str());
    all_at_once.commit();
}

}  // namespace

OlderState::OlderState() {
    setenv("RECORDER_STATE", folder_.path().c_str(), 1);
    for (const std::string name : {"config", "registry", "events"})
        load(folder_.path() + "/" + name + ".db",
             read_file(std::string(STATE_OF_SCHEMA_2) + "/" + name + ".sql"));
}

OlderState::~OlderState() {
    unsetenv("RECORDER_STATE");
}
