// Has copies be compared with their recordings once more, for whoever does not trust a server.
#include "services/backup_daemon/memory/recheck.h"

#include "services/backup_daemon/memory/sampled.h"

namespace services {

int recheck(standalone::Database& memory, const std::optional<std::string>& task_id) {
    const std::string which = task_id ? " AND taskID = ?3" : "";
    standalone::Statement update = memory.prepare(
        "UPDATE copied_file SET sampled = iif(sampled = ?1, ?1, ?2) "
        "WHERE removed = 0" +
        which);
    update.bind(1, SPOILT).bind(2, DOUBTED);
    if (task_id) update.bind(3, std::stoll(*task_id));
    update.step();
    return memory.changes();
}

}  // namespace services
