// What the names of day folders and recordings tell: "2024-03-01", "13-45-10.mp4", in local time.
#pragma once

#include <string>
#include <string_view>

namespace standalone {

/// Whether a name is that of a day's folder, and there is such a day.
bool is_day(std::string_view name);

/// Today's folder.
std::string today();

/// The second of the day at which a recording began; -1 when the name is no recording's.
int start_second(std::string_view name);

/// A second of a day in milliseconds since the epoch, right on the days when clocks change.
/// @param day one that is_day() accepts
long long start_ms(const std::string& day, int second);

}  // namespace standalone
