// Packets between the daemon and its copying processes: refused, or exactly what the writer writes;
// and of the reports nothing is told on but what an honest process could have said.
#include "services/backup_daemon/lane/worker_messages.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "services/backup_daemon/run/errand.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"

namespace {

using fuzz::check;
using services::WorkerReport;

/// Reads a packet and writes what was read.
template <typename Unpack>
auto read_and_write(const std::string& packet, Unpack unpack) {
    std::optional<decltype(unpack(packet))> message;
    try {
        message = unpack(packet);
    } catch (const std::runtime_error& error) {
        check(error.what()[0] != '\0', "a refusal says why");
        return message;
    }
    check(services::pack(*message) == packet, "what is taken the writer can have written");
    return message;
}

/// Whether the words can be shown to people.
bool is_readable(const std::string& words) {
    const auto is_control = [](unsigned char byte) { return byte < ' ' || byte == 0x7F; };
    return fuzz::is_utf8_text(words) && std::ranges::none_of(words, is_control);
}

/// Tells an errand a report.
/// @return whether it fits there
bool is_heard(services::Errand& errand, const WorkerReport& said) {
    const std::optional<services::ErrandStep> step = errand.hear(said);
    if (!step) return false;
    for (const services::Report& told : step->tell) {
        const auto* failed = std::get_if<services::Failed>(&told);
        check(failed == nullptr || is_readable(failed->text), "words are readable");
    }
    return true;
}

bool is_fate_of_one(const WorkerReport& said) {
    const auto* removed = std::get_if<services::Removed>(&said);
    return removed && removed->files.size() == 1;
}

void check_report(const WorkerReport& said) {
    const bool failed = std::holds_alternative<services::Failed>(said);
    const bool ready = std::holds_alternative<services::Ready>(said);
    check(is_heard(*services::connecting(), said) == (ready || failed),
          "who connects is ready, or fails");
    const auto removal = services::errand_of(services::RemoveFiles{{{"file"}}, {"folder"}});
    const auto* at = std::get_if<services::At>(&said);
    const bool fits = is_fate_of_one(said) || (at && at->offset == 0);
    check(is_heard(*removal, said) == (fits || failed), "who removes goes on, is done, or fails");
    const services::ReadCopy order{
        .copy = {"copy", 5, "hash"}, .recordings = "", .source = "", .modified_ns = 0};
    const auto reading = services::errand_of(order);
    reading->begin();
    const bool seen = std::holds_alternative<services::CopySeen>(said);
    const bool alive = at && at->offset == 0 && !at->begins;
    check(is_heard(*reading, said) == (seen || alive || failed),
          "who reads a copy goes on, tells of it, or fails");
}

}  // namespace

// The packet, read once as an order and once as a report.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string packet = fuzz::text(data, size);
    read_and_write(packet, services::unpack_order);
    if (const auto report = read_and_write(packet, services::unpack_report)) check_report(*report);
    return 0;
}
