// The debug file and the event log.
#include "platform/recorder_log.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "platform/event_ids.h"
#include "platform/standalone/debug_file.h"
#include "platform/standalone/event_handover.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/event_store.h"
#include "platform/standalone/store/one_line.h"
#include "platform/utilities.h"

namespace {

constexpr std::size_t LONGEST_LINE = 64 * 1024;
constexpr std::string_view CUT_MARK = "...\n";

/// The file stays open: a request writes dozens of lines.
standalone::DebugFile& debug_file(const char* path) {
    thread_local std::optional<standalone::DebugFile> file;
    if (!file || file->path() != path) file.emplace(path);
    return *file;
}

/// The text as one line. Line ends at its end are the format's, or make empty lines; any other one
/// has come with an argument and would begin a line that nobody wrote.
std::string debug_line(std::string_view text) {
    const std::size_t end = text.find_last_not_of('\n') + 1;
    return standalone::one_line(text.substr(0, end)).append(text.substr(end));
}

/// The formatted text, no further than one byte behind the longest line. On the stack, a buffer for
/// that would have all of its sixteen pages touched for each line; most are short.
std::string formatted(const char* format, va_list arguments) {
    constexpr std::size_t ROOM = LONGEST_LINE + 2;
    const auto buffer = std::make_unique_for_overwrite<char[]>(ROOM);
    const int wanted = std::vsnprintf(buffer.get(), ROOM, format, arguments);
    return {buffer.get(), static_cast<std::size_t>(std::clamp<long>(wanted, 0, ROOM - 1))};
}

std::string format_line(const char* format, va_list arguments) {
    const std::string text = formatted(format, arguments);
    std::string line = debug_line(std::string_view(text).substr(0, LONGEST_LINE));
    if (text.size() <= LONGEST_LINE && line.size() <= LONGEST_LINE) return line;
    line.resize(LONGEST_LINE - CUT_MARK.size());
    return line.append(CUT_MARK);
}

std::string text_or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

std::vector<std::string> take_texts(va_list arguments) {
    std::vector<std::string> texts;
    while (const char* text = va_arg(arguments, const char*)) texts.emplace_back(text);
    return texts;
}

standalone::Event make_event(unsigned event_id, int channel, const char* ip, const char* user,
                             va_list arguments) {
    standalone::Event event;
    event.time_ms = static_cast<long long>(current_time_stamp());
    event.event_id = event_id;
    event.channel = channel;
    event.user = text_or_empty(user);
    event.ip = text_or_empty(ip);
    event.arguments = take_texts(arguments);
    return event;
}

/// How many of their first arguments make events alike. Those of runs: application and task, so
/// that a task which is started without end hides no other one's. Those of sign-ins: the name, too,
/// which is an account's or one word for all others. Those of other requests: none, because a
/// request that fails has chosen the name.
std::size_t telling_arguments(unsigned event_id) {
    if (events::sub_type(event_id) == events::sub_type(events::SIGN_IN_FAILED)) return 3;
    return events::is_of_a_run(event_id) ? 2 : 0;
}

/// @param may_be_there the log service was told of it, and has not answered
/// @return whether it is stored; otherwise its minute is full
bool store_here(const standalone::NewEvent& event, bool may_be_there) {
    standalone::EventStore& log = standalone::event_log();
    standalone::Transaction transaction(standalone::events_for_writing());
    if (may_be_there && log.holds(event.event)) return true;
    if (!log.append_within_limit(event)) return false;
    transaction.commit();
    return true;
}

/// For a service that has the database open and nothing else to do. One that is stuck may not hold
/// requests up: whoever has an event can always store it.
constexpr std::chrono::milliseconds LONGEST_HANDOVER(1000);

/// The log service has the event database open, and to open it costs more than to ask. Whoever has
/// it open, too, does without.
bool store(const standalone::NewEvent& event) {
    using standalone::Handover;
    if (standalone::event_log_is_open()) return store_here(event, false);
    switch (standalone::hand_over(event, std::min(standalone::longest_wait(), LONGEST_HANDOVER))) {
        case Handover::stored:
            return true;
        case Handover::left_out:
            return false;
        case Handover::not_taken:
            return store_here(event, false);
        case Handover::unanswered:
            break;
    }
    return store_here(event, true);
}

/// @return 0, or -1 when the event can be stored nowhere
int tell(const standalone::NewEvent& event) {
    try {
        if (!store(event))
            DEBUG_LINE("event %08X is left out: a minute's %d are stored\n", event.event.event_id,
                       EVENTS_A_MINUTE);
        return 0;
    } catch (const std::exception&) {
        return -1;
    }
}

}  // namespace

void log_File_Debug(const char* path, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string line = format_line(format, arguments);
    va_end(arguments);
    if (!line.empty()) debug_file(path).append(line);
}

int send_surveillance_setting_log_with_username(unsigned event_id, int channel, const char* ip,
                                                const char* user_name, ...) {
    va_list arguments;
    va_start(arguments, user_name);
    auto event = make_event(event_id, channel, ip, user_name, arguments);
    va_end(arguments);
    return tell({std::move(event)});
}

int send_surveillance_event_log(unsigned event_id, int channel, const char* ip, ...) {
    va_list arguments;
    va_start(arguments, ip);
    auto event = make_event(event_id, channel, ip, "System", arguments);
    va_end(arguments);
    return tell(
        {std::move(event), standalone::EventLimit{EVENTS_A_MINUTE, telling_arguments(event_id)}});
}
