// Prints what goes wrong on standard error, but the same line not again and again.
#include "services/complaints.h"

#include <cstdio>

#include "platform/standalone/store/one_line.h"

namespace services {

void Complaints::print(const std::string& text, Time now) {
    print_as(text, text, now);
}

void Complaints::print_as(const std::string& key, const std::string& text, Time now) {
    std::erase_if(printed_, [&](const auto& line) { return now - line.second >= PAUSE; });
    if (printed_.contains(key)) return;
    if (printed_.size() >= MOST_REMEMBERED) printed_.clear();
    printed_[key] = now;
    std::fprintf(stderr, "%s\n", standalone::one_line(text).c_str());
}

}  // namespace services
