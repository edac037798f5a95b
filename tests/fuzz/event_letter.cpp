// Events on their way to the log service: refused, or exactly the event that is printed again.
#include "platform/standalone/store/event_letter.h"

#include "tests/fuzz/fuzz.h"

namespace {

using fuzz::check;
using standalone::Event;
using standalone::NewEvent;

bool is_same(const Event& one, const Event& other) {
    return one.time_ms == other.time_ms && one.event_id == other.event_id &&
           one.channel == other.channel && one.user == other.user && one.ip == other.ip &&
           one.arguments == other.arguments;
}

bool has_same_limit(const NewEvent& one, const NewEvent& other) {
    if (!one.limit || !other.limit) return !one.limit && !other.limit;
    return one.limit->most == other.limit->most && one.limit->arguments == other.limit->arguments;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto letter = standalone::read_letter(fuzz::text(data, size));
    if (!letter) return 0;
    check(letter->event.id == 0, "nobody gives an event its number but the log");
    const std::string printed = standalone::print_letter(*letter);
    const auto again = standalone::read_letter(printed);
    check(again.has_value(), "what is printed is read");
    check(is_same(again->event, letter->event) && has_same_limit(*again, *letter),
          "what is printed is the event that was read");
    check(standalone::print_letter(*again) == printed, "printing it again gives the same");
    return 0;
}
