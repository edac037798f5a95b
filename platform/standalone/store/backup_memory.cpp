// Opens the backup daemon's own database to read it.
#include "platform/standalone/store/backup_memory.h"

#include <filesystem>
#include <stdexcept>

#include "platform/standalone/store/state_folder.h"

namespace standalone {

// The build counts the daemon's schemas.
int known_memory_schema() {
    return MEMORY_SCHEMAS;
}

Database open_backup_memory() {
    const std::string path = state_folder() + "/backupd.db";
    if (!std::filesystem::exists(path))
        throw std::runtime_error("there is no " + path +
                                 "; the backup daemon makes it when it starts");
    Database memory(path, Database::Access::reading);
    Statement number = memory.prepare("PRAGMA user_version");
    number.step();
    if (number.integer(0) != known_memory_schema())
        throw std::runtime_error(path + " has schema " + number.text(0) +
                                 ", this program knows schema " +
                                 std::to_string(known_memory_schema()));
    return memory;
}

}  // namespace standalone
