// The history of a task's runs.
#include "console/run_routes.h"

#include <charconv>

#include "platform/standalone/store/backup_memory.h"
#include "platform/standalone/store/run_records.h"

namespace console {

namespace {

using standalone::FileAmount;
using standalone::RunRecord;
using standalone::RunRecords;

constexpr int RUNS_A_PAGE = 50;

Json amount_of(const FileAmount& amount) {
    Json object = Json::object();
    object.add("files", amount.files);
    object.add("bytes", amount.bytes);
    return object;
}

Json object_of(const RunRecord& run) {
    Json object = Json::object();
    object.add("number", run.number);
    object.add("cause", cause_text(run.cause));
    object.add("started", run.started);
    object.add("ended", run.ended);
    std::optional<std::string_view> outcome;
    if (run.outcome) outcome = outcome_text(*run.outcome);
    object.add("outcome", outcome);
    object.add("reason", run.reason);
    object.add("rate", run.counts.rate);
    object.add("planned", amount_of(run.counts.planned));
    object.add("sent", amount_of(run.counts.sent));
    object.add("kept", amount_of(run.counts.kept));
    object.add("failed", amount_of(run.counts.failed));
    object.add("removed", amount_of(run.counts.removed));
    return object;
}

Json failures_of(RunRecords& records, const RunRecord& run) {
    Json failures = Json::array();
    for (const auto& failed : records.failures(run)) {
        Json failure = Json::object();
        failure.add("file", failed.file);
        failure.add("reason", failed.reason);
        failures.append(failure);
    }
    return failures;
}

Json rates_of(RunRecords& records, const RunRecord& run) {
    Json rates = Json::array();
    if (run.outcome) return rates;
    for (const auto& [time, rate] : records.rates(run)) {
        Json pair = Json::array();
        pair.append(time);
        pair.append(rate);
        rates.append(pair);
    }
    return rates;
}

long long run_number(const std::string& text) {
    long long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? number : 0;
}

/// The runs before it are of another task, which had the identifier then.
long long first_run_of(RunRecords& records, const std::string& task_id) {
    const auto health = records.health(task_id);
    return health ? health->first_run : 0;
}

}  // namespace

Reply get_runs(const Request& request) {
    standalone::Database memory = standalone::open_backup_memory();
    RunRecords records(memory);
    const std::string& task_id = request.segments[1];
    auto runs = records.newest_before(task_id, request.number("before", 0), RUNS_A_PAGE + 1);
    const long long first = first_run_of(records, task_id);
    std::erase_if(runs, [first](const RunRecord& run) { return run.number < first; });
    Json page = Json::array();
    std::optional<long long> older;
    for (const RunRecord& run : runs) {
        if (page.size() == RUNS_A_PAGE) break;
        page.append(object_of(run));
        older = run.number;
    }
    Json object = Json::object();
    object.add("runs", page);
    object.add("older", runs.size() > RUNS_A_PAGE ? older : std::nullopt);
    return json_reply(object);
}

Reply get_run(const Request& request) {
    standalone::Database memory = standalone::open_backup_memory();
    RunRecords records(memory);
    const std::string& task_id = request.segments[1];
    const auto run = records.find(task_id, run_number(request.segments[3]));
    if (!run || run->number < first_run_of(records, task_id))
        throw not_found("No such run is kept.");
    Json object = object_of(*run);
    object.add("failures", failures_of(records, *run));
    object.add("rates", rates_of(records, *run));
    return json_reply(object);
}

}  // namespace console
