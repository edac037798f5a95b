// Stands between the stand-alone platform and its clock; the linker puts it there (--wrap).
#include "tests/platform/standalone/set_clock.h"

#include <ctime>

unsigned long long set_clock = 0;

extern "C" {
unsigned long long __real__Z18current_time_stampv();
std::time_t __real_time(std::time_t* also);

unsigned long long __wrap__Z18current_time_stampv() {
    return set_clock != 0 ? set_clock : __real__Z18current_time_stampv();
}

std::time_t __wrap_time(std::time_t* also) {
    if (set_clock == 0) return __real_time(also);
    const auto seconds = static_cast<std::time_t>(set_clock / 1000);
    if (also != nullptr) *also = seconds;
    return seconds;
}
}
