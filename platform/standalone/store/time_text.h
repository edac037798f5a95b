// Times as people read them.
#pragma once

#include <string>

namespace standalone {

/// Local time by a format of strftime(3), "?" for a time that no clock shows.
std::string time_text(long long seconds, const char* format);

/// Local time with the zone's offset at that time: "2024-03-01 12:30 +0100".
std::string zoned_minute(long long seconds);

}  // namespace standalone
