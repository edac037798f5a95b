// The fake's memory: the call log, the queue of failures and answers, and both recorder logs.
#include "tests/support/fake_platform/fake_state.h"

#include <cstdarg>
#include <deque>
#include <set>
#include <stdexcept>

#include "platform/recorder_log.h"
#include "tests/support/fake_platform/fake_platform.h"

namespace fake {

Platform platform;

namespace {

struct Rule {
    std::string name;
    int nth;  // counts down to the call it is meant for; 0 for every call
    std::optional<int> code;
};

std::vector<Rule> rules;
std::map<std::string, std::deque<std::string>> answers;

std::optional<int> obey(Rule& rule, const std::string& name) {
    if (rule.nth > 0 && --rule.nth == 0)
        rule.nth = -1;
    else if (rule.nth != 0)
        return std::nullopt;
    if (!rule.code) throw std::runtime_error("told to throw from " + name);
    return rule.code;
}

const std::set<std::string> without_effect = {
    "log_File_Debug",
    "comutil_get_json_str_by_key",
    "comutil_get_json_int_by_key",
    "comutil_get_json_bool_by_key",
    "comutil_get_json_double_by_key",
    "b64_encode_v2",
    "b64_decode_v2",
    "check_black_chrset",
    "current_time_stamp",
    "give_up_root",
    "take_recorder_identity",
    "conv_to_local_time",
};

std::string formatted(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    std::string text(static_cast<size_t>(vsnprintf(nullptr, 0, format, again)) + 1, '\0');
    va_end(again);
    vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

DebugLine taken_apart(const std::string& path, const std::string& text) {
    const auto middle = text.find(")(");
    const auto end = text.find(") ", middle + 2);
    if (text.rfind('(', 0) != 0 || middle == std::string::npos || end == std::string::npos)
        return {path, "", 0, text};
    return {path, text.substr(1, middle - 1),
            static_cast<int>(strtol(text.c_str() + middle + 2, nullptr, 10)), text.substr(end + 2)};
}

std::string shown_event(unsigned event_id) {
    char text[16];
    snprintf(text, sizeof text, "0x%08x", event_id);
    return text;
}

void append_texts(std::vector<std::string>& args, va_list texts) {
    while (const char* text = va_arg(texts, const char*)) args.emplace_back(text);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Call& call) {
    const char* separator = "";
    out << call.name << '(';
    for (const std::string& argument : call.args) {
        out << separator << argument;
        separator = ", ";
    }
    return out << ")\n";
}

std::optional<int> called(const std::string& name, std::vector<std::string> args) {
    platform.calls.push_back({name, std::move(args)});
    std::optional<int> code;
    for (Rule& rule : rules)
        if (rule.name == name)
            if (const auto told = obey(rule, name); told) code = told;
    return code;
}

std::optional<std::string> queued(const std::string& name) {
    auto& queue = answers[name];
    if (queue.empty()) return std::nullopt;
    std::string text = std::move(queue.front());
    queue.pop_front();
    return text;
}

std::string shown(const char* text) {
    return text ? text : "(null)";
}

std::string shown(bool flag) {
    return flag ? "true" : "false";
}

std::string shown_line(int line) {
    return line > 0 ? "line" : std::to_string(line);
}

void reset() {
    platform = Platform();
    platform.query_replies = {
        {"get_waitingTask_seq", R"({"retCode": 0, "watinTask_info": []})"},
        {"get_runningTask_info",
         R"({"retCode": 0, "max_parallel_task_num": 2, "runningTask_info": []})"}};
    rules.clear();
    answers.clear();
}

void fail(const std::string& name, int code, int nth) {
    rules.push_back({name, nth, code});
}

void throw_from(const std::string& name, int nth) {
    rules.push_back({name, nth, std::nullopt});
}

void answer(const std::string& name, const std::string& text) {
    answers[name].push_back(text);
}

std::vector<Call> effects() {
    std::vector<Call> found;
    for (const Call& call : platform.calls)
        if (!without_effect.contains(call.name)) found.push_back(call);
    return found;
}

std::vector<std::string> effect_names() {
    std::vector<std::string> names;
    for (const Call& call : effects()) names.push_back(call.name);
    return names;
}

std::vector<Call> calls_of(const std::string& name) {
    std::vector<Call> found;
    for (const Call& call : platform.calls)
        if (call.name == name) found.push_back(call);
    return found;
}

std::vector<std::string> debug_texts() {
    std::vector<std::string> texts;
    for (const DebugLine& line : platform.debug) texts.push_back(line.text);
    return texts;
}

}  // namespace fake

void log_File_Debug(const char* path, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = fake::formatted(format, arguments);
    va_end(arguments);
    fake::platform.debug.push_back(fake::taken_apart(path, text));
    fake::called("log_File_Debug", {path, text});
}

int send_surveillance_setting_log_with_username(unsigned event_id, int channel, const char* ip,
                                                const char* user_name, ...) {
    std::vector<std::string> args = {fake::shown_event(event_id), std::to_string(channel),
                                     fake::shown(ip), fake::shown(user_name)};
    va_list texts;
    va_start(texts, user_name);
    fake::append_texts(args, texts);
    va_end(texts);
    return fake::called(__func__, args).value_or(0);
}

int send_surveillance_event_log(unsigned event_id, int channel, const char* ip, ...) {
    std::vector<std::string> args = {fake::shown_event(event_id), std::to_string(channel),
                                     fake::shown(ip)};
    va_list texts;
    va_start(texts, ip);
    fake::append_texts(args, texts);
    va_end(texts);
    return fake::called(__func__, args).value_or(0);
}
