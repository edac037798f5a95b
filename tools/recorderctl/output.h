// How recorderctl prints: a JSON object or a row of columns to a line, always UTF-8.
#pragma once

#include <string>
#include <vector>

#include "platform/json_ptr.h"

namespace recorderctl {

// Bytes that are part of no character are printed as U+FFFD.

/// A JSON object that is built member by member.
class JsonLine {
public:
    JsonLine();
    JsonLine& add(const char* key, const std::string& text);
    JsonLine& add(const char* key, long long number);
    JsonLine& add(const char* key, int number) { return add(key, static_cast<long long>(number)); }
    JsonLine& add(const char* key, double number);
    JsonLine& add(const char* key, bool value);
    JsonLine& add(const char* key, const std::vector<std::string>& texts);
    JsonLine& add(const char* key, const std::vector<int>& numbers);
    JsonLine& add(const char* key, std::vector<JsonLine> objects);
    void print() const;

private:
    JsonLine& add_value(const char* key, json_object* value);

    JsonPtr object_;
};

/// Prints columns separated by tabs; control characters in them become blanks.
void print_row(const std::vector<std::string>& columns);

/// Prints a text as it is.
void print_line(const std::string& text);

/// Hands on what has been printed.
/// @throws std::runtime_error when it cannot be: on a full disk, for example
void flush_output();

/// Local time as "2024-03-01 12:30:00".
std::string local_time(long long milliseconds);

/// Local time with the zone's offset at that time: "2024-03-01 12:30:00 +0100".
std::string zoned_time(long long seconds);

}  // namespace recorderctl
