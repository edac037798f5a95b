// Packets between the daemon and its copying processes: refused, or exactly what the writer writes.
#include "services/backup_daemon/lane/worker_messages.h"

#include <stdexcept>

#include "tests/fuzz/fuzz.h"

namespace {

using fuzz::check;

/// Reads a packet and writes what was read.
template <typename Unpack>
void read_and_write(const std::string& packet, Unpack unpack) {
    std::string again;
    try {
        again = services::pack(unpack(packet));
    } catch (const std::runtime_error& error) {
        check(error.what()[0] != '\0', "a refusal says why");
        return;
    }
    check(again == packet, "nothing is taken that the writer cannot have written");
}

}  // namespace

// The packet, read once as an order and once as a report.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string packet = fuzz::text(data, size);
    read_and_write(packet, services::unpack_order);
    read_and_write(packet, services::unpack_report);
    return 0;
}
