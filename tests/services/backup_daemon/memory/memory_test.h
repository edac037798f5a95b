// A test on a fresh daemon's database, in a state folder of its own.
#pragma once

#include "platform/standalone/store/database.h"
#include "services/backup_daemon/memory/memory_database.h"
#include "tests/support/temporary_state.h"

class MemoryTest : public StateTest {
protected:
    long long count(const std::string& table) {
        standalone::Database reader(services::memory_database_path(),
                                    standalone::Database::Access::reading);
        standalone::Statement row = reader.prepare("SELECT count(*) FROM " + table);
        row.step();
        return row.integer(0);
    }

    services::Memory memory_ = services::open_memory();
};
