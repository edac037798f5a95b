// How recorderctl prints: a JSON object or a row of columns to a line, always UTF-8.
#include "tools/recorderctl/output.h"

#include <json-c/json.h>

#include <array>
#include <ctime>
#include <iostream>
#include <stdexcept>

#include "platform/standalone/store/strict_json.h"
#include "platform/standalone/store/time_text.h"
#include "platform/standalone/store/utf8.h"

namespace recorderctl {

namespace {

json_object* new_text(const std::string& text) {
    const std::string valid = standalone::valid_utf8(text);
    return json_object_new_string_len(valid.data(), static_cast<int>(valid.size()));
}

}  // namespace

JsonLine::JsonLine() : object_(json_object_new_object()) {}

JsonLine& JsonLine::add_value(const char* key, json_object* value) {
    json_object_object_add(object_.get(), key, value);
    return *this;
}

JsonLine& JsonLine::add(const char* key, const std::string& text) {
    return add_value(key, new_text(text));
}

JsonLine& JsonLine::add(const char* key, long long number) {
    return add_value(key, json_object_new_int64(number));
}

JsonLine& JsonLine::add(const char* key, double number) {
    return add_value(key, json_object_new_double(number));
}

JsonLine& JsonLine::add(const char* key, bool value) {
    return add_value(key, json_object_new_boolean(value));
}

JsonLine& JsonLine::add(const char* key, const std::vector<std::string>& texts) {
    json_object* array = json_object_new_array();
    for (const std::string& text : texts) json_object_array_add(array, new_text(text));
    return add_value(key, array);
}

JsonLine& JsonLine::add(const char* key, const std::vector<int>& numbers) {
    json_object* array = json_object_new_array();
    for (const int number : numbers) json_object_array_add(array, json_object_new_int(number));
    return add_value(key, array);
}

JsonLine& JsonLine::add(const char* key, std::vector<JsonLine> objects) {
    json_object* array = json_object_new_array();
    for (JsonLine& line : objects) json_object_array_add(array, line.object_.release());
    return add_value(key, array);
}

void JsonLine::print() const {
    std::cout << standalone::print_json(object_.get()) << '\n';
}

void print_row(const std::vector<std::string>& columns) {
    std::string line;
    for (const std::string& column : columns) {
        if (!line.empty()) line += '\t';
        for (const char byte : column) line += static_cast<unsigned char>(byte) < 0x20 ? ' ' : byte;
    }
    print_line(line);
}

void print_line(const std::string& text) {
    std::cout << standalone::valid_utf8(text) << '\n';
}

void flush_output() {
    if (!std::cout.flush()) throw std::runtime_error("what there is to tell cannot be written");
}

std::string local_time(long long milliseconds) {
    return standalone::time_text(milliseconds / 1000, "%Y-%m-%d %H:%M:%S");
}

std::string zoned_time(long long seconds) {
    return standalone::time_text(seconds, "%Y-%m-%d %H:%M:%S %z");
}

}  // namespace recorderctl
