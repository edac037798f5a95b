// Dates and times of day in texts: of requests, of records, of recordings' names.
#include <algorithm>
#include <climits>
#include <cstring>
#include <ctime>

#include "backup/task_request.h"
#include "platform/standalone/store/recording_name.h"
#include "tests/fuzz/fuzz.h"

namespace {

using fuzz::check;

constexpr int ANY_MODE = 2;

bool same_date(const std::tm& one, const std::tm& other) {
    return one.tm_year == other.tm_year && one.tm_mon == other.tm_mon &&
           one.tm_mday == other.tm_mday;
}

/// Reads a text; what is refused leaves the time alone.
bool read_time(const std::string& text, int mode, std::tm& time) {
    std::tm before{};
    before.tm_year = INT_MAX;
    time = before;
    const int result = str_time_to_tm(text, &time, mode);
    check(result == 0 || result == -1, "a date is read or refused");
    check(result == 0 || time.tm_year == INT_MAX, "a refused date writes nothing");
    check((result == 0) == (std::ranges::count(text, '-') >= (mode == 1   ? 5
                                                              : mode == 0 ? 2
                                                                          : 2)),
          "a date has its dashes");
    return result == 0;
}

void read_text(const std::string& text) {
    std::tm time{};
    for (const int mode : {0, 1, ANY_MODE})
        if (read_time(text, mode, time)) std::mktime(&time);
}

/// A day's folder is a date, and the start of a recording in it lies in it.
void check_day(const std::string& text, int second) {
    if (!standalone::is_day(text)) return;
    std::tm time{};
    check(read_time(text, 0, time), "the name of a day is a date");
    const long long start = standalone::start_ms(text, second) / 1000;
    char day[16];
    get_local_time_str(static_cast<long>(start), day, sizeof day);
    check(text == day, "a recording of a day began on that day");
}

void check_recording(const std::string& name) {
    const int second = standalone::start_second(name);
    check(second >= -1 && second < 24 * 3600, "a recording begins at a second of a day");
}

/// The text of an instant fits, and is read as that instant's day.
void check_instant(long seconds, int size) {
    char whole[64];
    get_local_time_str(seconds, whole, sizeof whole);
    check(std::memchr(whole, '\0', sizeof whole) != nullptr, "a text ends in its buffer");
    std::string cut(static_cast<std::size_t>(size), 'x');
    get_local_time_str(seconds, cut.data(), size);
    check(size == 0 || std::string(whole).substr(0, cut.size() - 1) == cut.c_str(),
          "a text is cut to its buffer");
    const std::time_t instant = seconds;
    std::tm local{};
    std::tm time{};
    if (localtime_r(&instant, &local) == nullptr || local.tm_year < -1900) return;
    check(read_time(whole, 0, time) && same_date(time, local), "a printed day is read as it was");
}

}  // namespace

// Line by line: seconds, size of a buffer, and a text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool zone_set = setenv("TZ", "Europe/Berlin", 1) == 0;
    check(zone_set, "the zone can be set");
    const std::string input = fuzz::text(data, size);
    std::string_view rest = input;
    const auto seconds = static_cast<long>(fuzz::number(fuzz::take_piece(rest, '\n')));
    const auto room = static_cast<long>(fuzz::number(fuzz::take_piece(rest, '\n')));
    const std::string text(rest);
    check_instant(seconds, static_cast<int>(std::clamp(room, 0L, 64L)));
    read_text(text);
    check_recording(text);
    check_day(text.substr(0, 10), static_cast<int>(std::clamp(room, 0L, 24L * 3600 - 1)));
    return 0;
}
