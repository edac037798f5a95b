// The words of alerts, for people, and the same for programs.
#include "services/backup_daemon/tell/alert_text.h"

#include <json-c/json.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <random>
#include <string_view>

#include "platform/json_ptr.h"
#include "platform/standalone/store/one_line.h"
#include "platform/standalone/store/remedy.h"
#include "platform/standalone/store/utf8.h"

namespace services {
namespace {

// Bytes. A name leaves room for the rest of a subject, which is one line of a mail.
constexpr std::size_t LONGEST_NAME = 100;
constexpr std::size_t LONGEST_SUBJECT = 300;
constexpr std::size_t LONGEST_DETAIL = 2000;

constexpr char HEX_DIGITS[] = "0123456789abcdef";
constexpr std::size_t ID_DIGITS = 32;

/// What others wrote, such that it stays on its line and in its encoding.
std::string safe(const std::string& text, std::size_t most) {
    std::string line = standalone::one_line(standalone::valid_utf8(text));
    if (line.size() <= most) return line;
    return std::string(standalone::cut_utf8(line, most)) + " ...";
}

std::string random_id() {
    std::random_device random;
    std::string id;
    while (id.size() < ID_DIGITS) id += HEX_DIGITS[random() % 16];
    return id;
}

std::string local_time(long long seconds, const char* form) {
    const std::time_t time = seconds;
    std::tm local = {};
    std::array<char, 100> text{};
    if (!localtime_r(&time, &local)) return "";
    return {text.data(), std::strftime(text.data(), text.size(), form, &local)};
}

/// "2024-03-01 12:30:00 +0100 (CET)"
std::string time_text(long long seconds) {
    return local_time(seconds, "%Y-%m-%d %H:%M:%S %z (%Z)");
}

std::string time_text(const std::optional<long long>& seconds) {
    return seconds ? time_text(*seconds) : "never";
}

/// RFC 3339 has a colon in the zone's offset.
std::string rfc3339(long long seconds) {
    std::string zone = local_time(seconds, "%z");
    if (zone.size() == 5) zone.insert(3, ":");
    return local_time(seconds, "%Y-%m-%dT%H:%M:%S") + zone;
}

std::string title(const ConcernedTask& task) {
    return "task " + task.id + " \"" + safe(task.name, LONGEST_NAME) + "\"";
}

/// What is wrong, as the second half of a line.
std::string headline(const Problem& problem) {
    if (problem.key.kind == ProblemKind::share_nearly_full)
        return "share " + safe(problem.key.subject, LONGEST_NAME) + " is nearly full";
    const std::string task = title(problem.tasks.at(0));
    if (problem.key.kind == ProblemKind::overdue) return task + " is overdue";
    if (problem.key.kind == ProblemKind::copies_differ)
        return task + ": copies are not as they were made";
    if (!problem.is_there) return task + ": its runs failed";
    const std::string run = problem.run > 0 ? "run " + std::to_string(problem.run) : "last run";
    return task + ": its " + run + " failed";
}

const char* event_name(AlertEvent event) {
    switch (event) {
        case AlertEvent::raised:
            return "raised";
        case AlertEvent::reminder:
            return "reminder";
        case AlertEvent::resolved:
            break;
    }
    return "resolved";
}

std::string what_happened(AlertEvent event, const Problem& problem) {
    std::string what = headline(problem);
    if (event == AlertEvent::raised) return what;
    return (event == AlertEvent::reminder ? "still: " : "over: ") + what;
}

std::string what_to_do(AlertEvent event, const Problem& problem) {
    return event == AlertEvent::resolved ? "nothing: it is over"
                                         : remedy_for(problem.key.kind, problem.detail);
}

std::string subject_line(const std::string& recorder, const std::string& what) {
    return safe("Recording backup of " + recorder + ": " + what, LONGEST_SUBJECT);
}

std::string text_of(AlertEvent event, const Problem& problem, const std::string& recorder,
                    long long now) {
    std::string text = "Recorder: " + safe(recorder, LONGEST_NAME) + "\n";
    text += "What happened: " + what_happened(event, problem) + "\n";
    if (problem.is_there && !problem.detail.empty())
        text += "In words: " + safe(problem.detail, LONGEST_DETAIL) + "\n";
    text += "Since: " + time_text(problem.since) + "\n";
    if (event == AlertEvent::resolved) text += "Until: " + time_text(now) + "\n";
    for (const ConcernedTask& task : problem.tasks)
        text += "Last success of " + title(task) + ": " + time_text(task.last_success) + "\n";
    return text + "What to do: " + what_to_do(event, problem) + "\n";
}

// Objects. What is added belongs to the object it is added to.

json_object* text_member(const std::string& text) {
    return json_object_new_string_len(text.data(), static_cast<int>(text.size()));
}

/// A name for programs, which may compare it: as it is, but in UTF-8, and cut.
json_object* name_member(const std::string& name) {
    const std::string text = standalone::valid_utf8(name);
    return text_member(std::string(standalone::cut_utf8(text, LONGEST_DETAIL)));
}

json_object* time_member(const std::optional<long long>& seconds) {
    if (!seconds) return nullptr;
    json_object* time = json_object_new_object();
    json_object_object_add(time, "seconds", json_object_new_int64(*seconds));
    json_object_object_add(time, "rfc3339", text_member(rfc3339(*seconds)));
    return time;
}

json_object* task_member(const ConcernedTask& task) {
    json_object* member = json_object_new_object();
    json_object_object_add(member, "id", text_member(task.id));
    json_object_object_add(member, "name", name_member(task.name));
    return member;
}

/// The tasks of a share, with what one task has beside it.
json_object* tasks_member(const std::vector<ConcernedTask>& tasks) {
    json_object* members = json_object_new_array();
    for (const ConcernedTask& task : tasks) {
        json_object* member = task_member(task);
        json_object_object_add(member, "last_success", time_member(task.last_success));
        json_object_array_add(members, member);
    }
    return members;
}

void add_concerned(json_object* object, const Problem& problem) {
    const bool is_of_share = problem.key.kind == ProblemKind::share_nearly_full;
    json_object_object_add(object, "task",
                           is_of_share ? nullptr : task_member(problem.tasks.at(0)));
    json_object_object_add(object, "last_success",
                           is_of_share ? nullptr : time_member(problem.tasks.at(0).last_success));
    if (!is_of_share) return;
    json_object_object_add(object, "destination", name_member(problem.key.subject));
    json_object_object_add(object, "tasks", tasks_member(problem.tasks));
}

/// Adds what the message has already, and what every object has.
void finish(AlertMessage& message, const JsonPtr& object, const std::string& recorder,
            const std::string& to_do, long long now) {
    json_object_object_add(object.get(), "id", text_member(message.id));
    json_object_object_add(object.get(), "recorder", name_member(recorder));
    json_object_object_add(object.get(), "time", time_member(now));
    json_object_object_add(object.get(), "subject", text_member(message.subject));
    json_object_object_add(object.get(), "text", text_member(message.text));
    json_object_object_add(object.get(), "what_to_do", text_member(to_do));
    message.object = json_object_to_json_string_ext(
        object.get(), JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
}

}  // namespace

std::string recorder_name(const std::string& identity) {
    std::array<char, 256> host{};
    gethostname(host.data(), host.size() - 1);
    return std::string(host.data()) + " (" + identity.substr(0, 8) + ")";
}

AlertMessage alert_message(AlertEvent event, const Problem& problem, const std::string& recorder,
                           long long now) {
    AlertMessage message{
        .id = random_id(),
        .subject = subject_line(recorder, what_happened(event, problem)),
        .text = text_of(event, problem, recorder, now),
        .object = "",
        .about = std::string(problem_text(problem.key.kind)) + ' ' + problem.key.subject};
    const JsonPtr object(json_object_new_object());
    json_object_object_add(object.get(), "event", text_member(event_name(event)));
    json_object_object_add(object.get(), "problem",
                           text_member(std::string(problem_text(problem.key.kind))));
    add_concerned(object.get(), problem);
    json_object_object_add(object.get(), "since", time_member(problem.since));
    finish(message, object, recorder, what_to_do(event, problem), now);
    return message;
}

AlertMessage test_message(const std::string& recorder, long long now) {
    AlertMessage message{
        .id = random_id(),
        .subject = subject_line(recorder, "test"),
        .text = "Recorder: " + safe(recorder, LONGEST_NAME) +
                "\nWhat happened: somebody has asked for a test\nTime: " + time_text(now) +
                "\nWhat to do: " + standalone::remedy_of_test() + "\n",
        .object = ""};
    const JsonPtr object(json_object_new_object());
    json_object_object_add(object.get(), "event", text_member("test"));
    for (const char* nothing : {"problem", "task", "last_success", "since"})
        json_object_object_add(object.get(), nothing, nullptr);
    finish(message, object, recorder, standalone::remedy_of_test(), now);
    return message;
}

}  // namespace services
