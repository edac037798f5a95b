// Local days and times without a library's hidden state: the time zone is handed in.
#include "platform/standalone/store/calendar.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace standalone {
namespace {

constexpr long long DAY = 24LL * 60 * 60;

long long floor_divide(long long value, long long by) {
    return value / by - (value % by < 0 ? 1 : 0);
}

/// The instant in (low, high] at which the zone's offset becomes the one it has at `high`.
long long change_between(long long low, long long high, const TimeZone& zone) {
    const long long later = zone(high);
    while (high - low > 1) {
        const long long middle = low + (high - low) / 2;
        if (zone(middle) == later)
            high = middle;
        else
            low = middle;
    }
    return high;
}

}  // namespace

long long machine_zone(long long instant) {
    const auto seconds = static_cast<std::time_t>(instant);
    std::tm local{};
    return localtime_r(&seconds, &local) ? local.tm_gmtoff : 0;
}

DayNumber local_day(long long instant, const TimeZone& zone) {
    return floor_divide(instant + zone(instant), DAY);
}

int weekday_of(DayNumber day) {
    const std::chrono::sys_days date{std::chrono::days(day)};
    return static_cast<int>(std::chrono::weekday(date).c_encoding());
}

std::string day_text(DayNumber day) {
    const std::chrono::year_month_day date(std::chrono::sys_days{std::chrono::days(day)});
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
    return text;
}

DayNumber day_number(const std::string& text) {
    int year = 0;
    unsigned month = 0;
    unsigned day = 0;
    std::sscanf(text.c_str(), "%d-%u-%u", &year, &month, &day);
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month),
                                           std::chrono::day(day)};
    return std::chrono::sys_days(date).time_since_epoch().count();
}

long long instant_of(DayNumber day, int hour, int minute, const TimeZone& zone) {
    const long long shown = day * DAY + hour * 3600LL + minute * 60LL;
    const long long before = zone(shown - 2 * DAY);
    const long long after = zone(shown + 2 * DAY);
    // The earlier of the two readings comes first in an hour that clocks show twice.
    const long long first = shown - before;
    if (zone(first) == before) return first;
    const long long second = shown - after;
    if (zone(second) == after) return second;
    return change_between(second, first, zone);
}

}  // namespace standalone
