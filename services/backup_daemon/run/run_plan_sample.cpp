// What a run's plan does about copies of earlier runs, of which it has a sample read back.
#include <utility>

#include "services/backup_daemon/run/run_plan.h"

namespace services {
namespace {

// Spoilt copies that get an event of their own.
constexpr long long SPOILT_TOLD = 10;

// A server in trouble may answer another connection.
constexpr int CHECK_ATTEMPTS = 3;

// Bytes of copies that one run reads back, but for the rest of a camera's day: after a first run of
// a large archive new recordings must not wait for hours. What is left waits for the next run.
constexpr long long MOST_READ = 100LL << 30;

const char* words_of(Condition condition) {
    switch (condition) {
        case Condition::as_made:
            break;
        case Condition::missing:
            return " is not there any more";
        case Condition::other_size:
            return " has another size than it was made with";
        case Condition::other_content:
            return " has another content than it was made with";
    }
    return "";
}

}  // namespace

/// One camera's day after the other: what a large archive has to be read is never all in memory.
/// @return whether copies are to be read
bool RunPlan::plan_sample() {
    if (sampling_.folder.empty()) {
        sampling_.spoilt = memory_.spoilt();
        sampling_.was_any = !sampling_.spoilt.empty();
    } else {
        memory_.end_sample(sampling_.folder);
    }
    if (sampling_.read >= MOST_READ) return false;
    Sample sample = memory_.sample();
    sampling_.folder = sample.folder;
    for (const CopiedFile& copy : sample.copies) {
        ready_.push_back({check_work(goal_, names_, copy, sample.folder)});
        sampling_.read += copy.size;
    }
    return !sample.copies.empty();
}

/// Each piece is progress: reading a large copy over a slow line must not use up the patience that
/// copying needs.
RunPlan::Answer RunPlan::answer(CheckCopy&, const At&) {
    tally_.went_on();
    return Answer::part;
}

RunPlan::Answer RunPlan::answer(CheckCopy& check, const CopySeen& seen) {
    if (seen.condition != Condition::as_made)
        find_spoilt(check, check.path + words_of(seen.condition));
    tally_.went_on();
    return Answer::whole;
}

/// The memory first: what it refuses is told once more.
void RunPlan::find_spoilt(const CheckCopy& check, const std::string& why) {
    memory_.doubt(check.path, check.folder);
    sampling_.spoilt.insert(check.path);
    sampling_.was_any = true;
    if (++counts_.spoilt <= SPOILT_TOLD) notes_.push_back({COPY_SPOILT, why});
}

/// Other failures than a connection's. A recording that changes while it is read says nothing of
/// its copy.
FailureStep RunPlan::fail_to_check(LaneId lane, const Failed& failed) {
    const Work& work = given_.at(lane);
    const auto& check = std::get<CheckCopy>(work.what);
    if (failed.kind == FailureKind::other && work.attempts + 1 < CHECK_ATTEMPTS)
        return {FailureStep::Kind::lose_lane, failed.text};
    if (failed.kind != FailureKind::source)
        find_spoilt(check, check.path + " cannot be read: " + failed.text);
    given_.erase(lane);
    if (failed.kind != FailureKind::other) return {};
    return {FailureStep::Kind::replace_lane, ""};
}

/// A lane is lost. A copy that is at it each time, or what a deleted task has left, may be why, and
/// is left alone then.
bool RunPlan::may_be_tried_again(Work& work) {
    const bool may_be_why = std::holds_alternative<CheckCopy>(work.what) || is_abandoned(work);
    return !may_be_why || ++work.attempts < CHECK_ATTEMPTS;
}

/// What was not made anew, and has not failed on the way to that, is lost with its recording.
void RunPlan::give_up_spoilt() {
    if (!sampling_.was_any) return;
    // Another task may have made one anew meanwhile.
    const auto left = memory_.spoilt();
    std::erase_if(sampling_.spoilt, [&](const std::string& path) { return !left.contains(path); });
    for (const std::string& path : std::exchange(sampling_.spoilt, {})) {
        tally_.plan(1, 0);
        give_up_file({}, path + ": the copy is not as it was made, and is not made anew", path);
    }
}

}  // namespace services
