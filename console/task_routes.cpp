// GET tasks: every task and how it fares, at one moment.
#include "console/task_routes.h"

#include <array>
#include <bit>
#include <ctime>
#include <functional>
#include <map>
#include <utility>

#include "console/health.h"
#include "console/recorder_facts.h"
#include "console/state_mark.h"
#include "console/task_settings.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/digest.h"
#include "platform/standalone/store/remedy.h"
#include "platform/standalone/store/status_reading.h"
#include "platform/standalone/store/strict_json.h"

namespace console {

namespace {

using standalone::BackupStatus;
using standalone::RunOutcome;
using standalone::RunProgress;
using standalone::RunRecord;
using standalone::TaskStatus;

/// Of a task, in bytes.
constexpr std::size_t USUAL_LENGTH = 1000;

Json texts(const std::vector<std::string>& lines) {
    Json array = Json::array();
    for (const std::string& line : lines) array.append(line);
    return array;
}

std::optional<std::string> text_if_any(const std::string& text) {
    if (text.empty()) return {};
    return text;
}

Json progress_of(const RunProgress& progress) {
    Json object = Json::object();
    object.add("percent", progress.percent);
    object.add("rate", progress.rate);
    object.add("seconds_left", progress.seconds_left);
    object.add("files_done", progress.done.files);
    object.add("files_left", progress.left.files);
    object.add("bytes_done", progress.done.bytes);
    object.add("bytes_left", progress.left.bytes);
    object.add("message", progress.message);
    return object;
}

Json attempt_of(const RunRecord& run) {
    Json object = Json::object();
    object.add("number", run.number);
    object.add("started", run.started);
    object.add("ended", run.ended);
    std::optional<std::string_view> outcome;
    if (run.outcome) outcome = outcome_text(*run.outcome);
    object.add("outcome", outcome);
    object.add("reason", run.reason);
    std::optional<std::string> remedy;
    if (run.outcome == RunOutcome::failed) remedy = standalone::remedy_for_run(run.reason);
    object.add("remedy", remedy);
    return object;
}

/// Nothing of nothing.
template <class Value>
std::optional<Json> object_if(const std::optional<Value>& value, Json (*object_of)(const Value&)) {
    if (!value) return {};
    return object_of(*value);
}

/// Hashes that cannot be turned round, each made once: most tasks have the password of others.
class PasswordHashes {
public:
    const std::string& of(const std::string& password) {
        std::string& hash = hashes_[password];
        if (hash.empty()) hash = standalone::sha256_hex(password);
        return hash;
    }

private:
    std::map<std::string, std::string> hashes_;
};

/// Changes with the settings, so that two who change them at once notice each other. The password
/// counts through its hash; whoever gets the digest may read it anyway.
std::string revision_of(const TDataBackupConfig& task, const Json& settings,
                        PasswordHashes& passwords) {
    std::string text = settings.text();
    text.append(task.enable ? "1" : "0").append(passwords.of(task.password));
    return standalone::quick_digest(text);
}

Json object_of(const TaskStatus& status, PasswordHashes& passwords) {
    const TDataBackupConfig& task = status.task;
    const Json settings = settings_of(task);
    Json object = Json::object(USUAL_LENGTH);
    object.add("id", task.taskID);
    object.add("revision", revision_of(task, settings, passwords));
    object.add("name", task.taskName);
    object.add("enabled", task.enable);
    object.add("status", table_text(strStatus_Arr, task.status));
    object.add("settings", settings);
    object.add("queue_place", status.place);
    object.add("progress", object_if(status.progress, progress_of));
    object.add("next_run", status.next_run);
    object.add("last_success", status.health.success_time);
    object.add("last_attempt", object_if(status.last_run, attempt_of));
    object.add("overdue_since", status.overdue ? status.health.overdue_from : std::nullopt);
    object.add("problems", texts(status.problems));
    object.add("remedies", texts(status.remedies));
    object.add("missing", text_if_any(status.missing));
    object.add("notes", texts(status.notes));
    return object;
}

Json object_of(const BackupStatus& status, const Health& health) {
    Json object = Json::object((status.tasks.size() + 1) * USUAL_LENGTH);
    object.add("recorder", recorder_facts(status.time));
    object.add("services", services_of(health));
    object.add("verdict", verdict_text(status.verdict()));
    object.add("needs_attention", status.needs_attention());
    object.add("problems", texts(status.problems));
    object.add("notes", texts(status.notes));
    object.add_array("tasks", [&status](Json& tasks) {
        PasswordHashes passwords;
        for (const TaskStatus& task : status.tasks) tasks.append(object_of(task, passwords));
    });
    return object;
}

/// Of a whole reply, which is long: nobody gains from two that have the same one, and the C++
/// library's hash takes a quarter of the time of quick_digest().
std::string body_digest(const std::string& body) {
    const auto hash = std::bit_cast<std::array<unsigned char, sizeof(std::size_t)>>(
        std::hash<std::string>()(body));
    return standalone::hex(hash);
}

/// Stands at a tag's end. Waits for the services, so it is asked for when nothing else is to do.
std::string services_mark(HealthQuestion& question) {
    const Health& health = question.answer();
    return {health.backup ? '1' : '0', health.log ? '1' : '0', '"'};
}

/// A tag is what the reply says, a dash, the state that it was read from, and the services.
bool has_part(const std::string& tag, const std::string& part) {
    return tag.find(part) != std::string::npos;
}

Reply unchanged(const std::string& tag) {
    return {.status = 304, .headers = {"ETag: " + tag}};
}

}  // namespace

Reply get_tasks(const Request& request) {
    HealthQuestion question;
    // Looked at before the state is read: what changes meanwhile is seen the next time.
    const std::string state = '-' + state_mark(std::time(nullptr));
    if (has_part(request.tag, state) && has_part(request.tag, state + services_mark(question)))
        return unchanged(request.tag);
    // Never taken apart, as the process has no more to do than to print.
    static const BackupStatus status = standalone::backup_status(
        standalone::config_for_reading(), [&question] { return question.answer().backup; });
    const std::string mark = state + services_mark(question);
    std::string body = object_of(status, question.answer()).text();
    const std::string digest = '"' + body_digest(body);
    if (has_part(request.tag, digest)) return unchanged(digest + mark);
    body.insert(1, "\"time\":" + std::to_string(status.time) + ',');
    return {.headers = {"ETag: " + digest + mark}, .body = std::move(body)};
}

}  // namespace console
