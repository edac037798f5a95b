// Local days and times without a library's hidden state: the time zone is handed in.
#pragma once

#include <functional>
#include <string>

namespace standalone {

/// Seconds that local time is ahead of UTC at an instant (seconds since the epoch).
using TimeZone = std::function<long long(long long)>;

/// The machine's zone.
long long machine_zone(long long instant);

/// A local day, counted from 1970-01-01.
using DayNumber = long long;

DayNumber local_day(long long instant, const TimeZone& zone);

/// 0 is Sunday.
int weekday_of(DayNumber day);

/// "2024-03-01".
std::string day_text(DayNumber day);

/// The day of "2024-03-01": the way back.
/// @param text day_text() has written it, or a folder of recordings has it for its name
DayNumber day_number(const std::string& text);

/// The first instant at which local clocks show this time of that day or, where they skip it, a
/// later one.
long long instant_of(DayNumber day, int hour, int minute, const TimeZone& zone);

}  // namespace standalone
