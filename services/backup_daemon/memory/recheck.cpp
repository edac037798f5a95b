// Has copies be compared with their recordings once more, for whoever does not trust a server.
#include "services/backup_daemon/memory/recheck.h"

#include "services/backup_daemon/memory/sampled.h"

namespace services {
namespace {

/// A place in the order of copied_file's key.
struct Place {
    std::string destination{};
    std::string path{};
};

/// The last copy of a batch that begins behind `begin`; nothing when fewer are left than a batch
/// has. Whose they are does not matter.
std::optional<Place> end_of_batch(standalone::Database& memory, const Place& begin) {
    standalone::Statement row = memory.prepare(
        "SELECT destination, path FROM copied_file WHERE (destination, path) > (?, ?) "
        "ORDER BY destination, path LIMIT 1 OFFSET ?");
    row.bind(1, begin.destination).bind(2, begin.path).bind(3, RECHECKED_AT_ONCE - 1);
    if (!row.step()) return {};
    return Place{row.text(0), row.text(1)};
}

/// Doubts those behind `begin` up to `end`, or all that are left.
int doubt(standalone::Database& memory, const std::optional<std::string>& task_id,
          const Place& begin, const std::optional<Place>& end) {
    const std::string last = end ? " AND (destination, path) <= (?5, ?6)" : "";
    const std::string whose = task_id ? " AND taskID = ?7" : "";
    standalone::Statement update = memory.prepare(
        "UPDATE copied_file SET sampled = iif(sampled = ?1, ?1, ?2) "
        "WHERE removed = 0 AND (destination, path) > (?3, ?4)" +
        last + whose);
    update.bind(1, SPOILT).bind(2, DOUBTED).bind(3, begin.destination).bind(4, begin.path);
    if (end) update.bind(5, end->destination).bind(6, end->path);
    if (task_id) update.bind(7, std::stoll(*task_id));
    update.step();
    return memory.changes();
}

}  // namespace

int recheck(standalone::Database& memory, const std::optional<std::string>& task_id,
            const std::function<void()>& rest) {
    int doubted = 0;
    Place begin;
    while (const auto end = end_of_batch(memory, begin)) {
        doubted += doubt(memory, task_id, begin, end);
        begin = *end;
        rest();
    }
    return doubted + doubt(memory, task_id, begin, {});
}

}  // namespace services
