// A state folder as the version before the daemon had a database of its own left it.
#pragma once

#include <array>
#include <string>

#include "platform/standalone/store/database.h"
#include "tests/support/temporary_state.h"

/// RECORDER_STATE points to a new folder with that version's databases; a run was on its way.
class OlderState {
public:
    OlderState() {
        setenv("RECORDER_STATE", folder_.path().c_str(), 1);
        for (const std::string name : {"config", "registry", "events"})
            load(folder_.path() + "/" + name + ".db",
                 read_file(std::string(STATE_OF_SCHEMA_2) + "/" + name + ".sql"));
    }
    ~OlderState() { unsetenv("RECORDER_STATE"); }

    const std::string& folder() const { return folder_.path(); }

private:
    static void load(const std::string& path, const std::string& sql) {
        write_file(path, "");
        standalone::Database database(path, standalone::Database::Access::writing);
        standalone::Transaction all_at_once(database);
        database.run(sql.c_str());
        all_at_once.commit();
    }

    TemporaryFolder folder_;
};
