// Prints what goes wrong on standard error, but the same line not again and again.
#pragma once

#include <chrono>
#include <map>
#include <string>

namespace services {

/// What one place of a program complains of. A trouble that lasts comes again with every attempt:
/// its line is printed at once, then once in ten minutes.
class Complaints {
public:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr std::chrono::minutes PAUSE{10};
    static constexpr std::size_t MOST_REMEMBERED = 16;  ///< lines that are told from new ones

    /// Prints a text as one line, unless it was printed within the last PAUSE.
    void print(const std::string& text, Time now = std::chrono::steady_clock::now());

    /// The same for a text that is never twice the same: what is remembered is its key.
    void print_as(const std::string& key, const std::string& text,
                  Time now = std::chrono::steady_clock::now());

private:
    std::map<std::string, Time> printed_;
};

}  // namespace services
