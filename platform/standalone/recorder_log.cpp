// The debug file and the event log.
#include "platform/recorder_log.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <optional>

#include "platform/standalone/debug_file.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/event_store.h"
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

/// Formats into a buffer of `size` bytes and gives the length of the line there.
std::size_t format_line(char* buffer, std::size_t size, const char* format, va_list arguments) {
    const int wanted = std::vsnprintf(buffer, size, format, arguments);
    if (wanted < 0) return 0;
    const auto length = static_cast<std::size_t>(wanted);
    if (length < size) return length;
    CUT_MARK.copy(buffer + size - 1 - CUT_MARK.size(), CUT_MARK.size());
    return size - 1;
}

std::string text_or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

std::vector<std::string> take_texts(va_list arguments) {
    std::vector<std::string> texts;
    while (const char* text = va_arg(arguments, const char*)) texts.emplace_back(text);
    return texts;
}

int store_event(unsigned event_id, int channel, const char* ip, const char* user,
                va_list arguments) {
    try {
        standalone::Event event;
        event.time_ms = static_cast<long long>(current_time_stamp());
        event.event_id = event_id;
        event.channel = channel;
        event.user = text_or_empty(user);
        event.ip = text_or_empty(ip);
        event.arguments = take_texts(arguments);
        standalone::EventStore(standalone::events_for_writing()).append(event);
        return 0;
    } catch (const std::exception&) {
        return -1;
    }
}

}  // namespace

void log_File_Debug(const char* path, const char* format, ...) {
    std::array<char, LONGEST_LINE + 1> buffer;
    va_list arguments;
    va_start(arguments, format);
    const std::size_t length = format_line(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    if (length > 0) debug_file(path).append({buffer.data(), length});
}

int send_surveillance_setting_log_with_username(unsigned event_id, int channel, const char* ip,
                                                const char* user_name, ...) {
    va_list arguments;
    va_start(arguments, user_name);
    const int result = store_event(event_id, channel, ip, user_name, arguments);
    va_end(arguments);
    return result;
}

int send_surveillance_event_log(unsigned event_id, int channel, const char* ip, ...) {
    va_list arguments;
    va_start(arguments, ip);
    const int result = store_event(event_id, channel, ip, "System", arguments);
    va_end(arguments);
    return result;
}
