// What the names of day folders and recordings tell: "2024-03-01", "13-45-10.mp4", in local time.
#include "platform/standalone/store/recording_name.h"

#include <chrono>
#include <ctime>

namespace standalone {

namespace {

/// Reads `digits` decimal digits at `at`; -1 when there is anything else.
int number_at(std::string_view text, std::size_t at, std::size_t digits) {
    int value = 0;
    for (const char byte : text.substr(at, digits)) {
        if (byte < '0' || byte > '9') return -1;
        value = value * 10 + (byte - '0');
    }
    return value;
}

}  // namespace

bool is_day(std::string_view name) {
    if (name.size() != 10 || name[4] != '-' || name[7] != '-') return false;
    const int year = number_at(name, 0, 4);
    const int month = number_at(name, 5, 2);
    const int day = number_at(name, 8, 2);
    if (year < 0 || month < 0 || day < 0) return false;
    return std::chrono::year_month_day(std::chrono::year(year), std::chrono::month(month),
                                       std::chrono::day(day))
        .ok();
}

std::string today() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[16];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d", &local)};
}

int start_second(std::string_view name) {
    if (name.size() < 10 || name[2] != '-' || name[5] != '-' || name[8] != '.') return -1;
    const int hour = number_at(name, 0, 2);
    const int minute = number_at(name, 3, 2);
    const int second = number_at(name, 6, 2);
    const bool valid =
        hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second < 60;
    return valid ? hour * 3600 + minute * 60 + second : -1;
}

long long start_ms(const std::string& day, int second) {
    std::tm local{};
    local.tm_year = number_at(day, 0, 4) - 1900;
    local.tm_mon = number_at(day, 5, 2) - 1;
    local.tm_mday = number_at(day, 8, 2);
    local.tm_hour = second / 3600;
    local.tm_min = second / 60 % 60;
    local.tm_sec = second % 60;
    local.tm_isdst = -1;
    return static_cast<long long>(std::mktime(&local)) * 1000;
}

}  // namespace standalone
