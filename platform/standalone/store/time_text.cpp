// Times as people read them.
#include "platform/standalone/store/time_text.h"

#include <array>
#include <ctime>

namespace standalone {

std::string time_text(long long seconds, const char* format) {
    const auto instant = static_cast<std::time_t>(seconds);
    std::tm local{};
    if (!localtime_r(&instant, &local)) return "?";
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), format, &local);
    return text.data();
}

std::string zoned_minute(long long seconds) {
    return time_text(seconds, "%Y-%m-%d %H:%M %z");
}

}  // namespace standalone
