// What a run's plan makes of the lanes' reports and failures.
#include <algorithm>
#include <utility>

#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/run/camera_folders.h"
#include "services/backup_daemon/run/run_plan.h"

namespace services {
namespace {

// A failure that nobody can tell the meaning of may be the connection's.
constexpr int ATTEMPTS = 3;

// Failures that get an event of their own; the run's end tells how many there were.
constexpr long long FAILURES_TOLD = 10;

// So many files refused one after the other: it is the share, not the files.
constexpr int MOST_DENIED = 20;

/// It reads folders of recordings.
bool is_listing_recordings(const Work& work) {
    return std::holds_alternative<FindDays>(work.what) ||
           std::holds_alternative<LookAtDay>(work.what) ||
           std::holds_alternative<SeekRecordings>(work.what);
}

}  // namespace

bool RunPlan::take(LaneId lane, const Report& report) {
    const auto found = given_.find(lane);
    if (found == given_.end()) return false;
    const Answer made =
        std::visit([this](auto& what, const auto& said) { return answer(what, said); },
                   found->second.what, report);
    if (made == Answer::whole) given_.erase(found);
    return made != Answer::nonsense;
}

RunPlan::Answer RunPlan::answer(SeekPlace&, const FoundPlace& place) {
    places_.settle({place.id, place.marked, !place.below.empty()});
    memory_.move_to(place.id);
    auto channels = goal_.channels;
    give_folders(channels, place.cameras, places_);
    goal_.channels = std::move(channels);
    names_ =
        ShareNames(join_path(goal_.destination.folder, place.below), goal_.recorder, goal_.task_id);
    if (place.marked && !goal_.makes_nothing()) tell_cameras(place);
    if (place.is_new && !place.below.empty())
        notes_.push_back({OWN_FOLDER_MADE, names_.on_share("")});
    return Answer::whole;
}

/// Written only where it says something else.
void RunPlan::tell_cameras(const FoundPlace& place) {
    const std::string text = cameras_text(folders_to_tell(place.cameras, places_), LONGEST_TEXT);
    if (text == cameras_text(place.cameras, LONGEST_TEXT)) return;
    const std::string path = cameras_path(names_.on_share(""));
    ready_.push_back(
        {TellCameras{{.path = path, .temporary = names_.temporary_path(path), .text = text}}});
}

RunPlan::Answer RunPlan::answer(TellCameras&, const Done&) {
    return Answer::whole;
}

/// Before sending begins, At is a sign of life and no more.
RunPlan::Answer RunPlan::answer(CopyFile& copy, const At& at) {
    if (at.begins) copy.count.begun = false;
    if (at.begins || copy.count.begun) tally_.reached(copy.count, at.offset);
    return Answer::part;
}

RunPlan::Answer RunPlan::answer(CopyFile& copy, const Noted& noted) {
    memory_.save({copy.path, copy.temporary, noted.offset, noted.sha256});
    tally_.reached(copy.count, noted.offset);
    return Answer::part;
}

RunPlan::Answer RunPlan::answer(CopyFile& copy, const Copied& copied) {
    memory_.record({.path = copy.path,
                    .day = where(copy.day).day,
                    .size = copied.result.size,
                    .modified_ns = copied.result.modified_ns,
                    .sha256 = copied.result.sha256,
                    .side_file = copy.job.side_file.has_value(),
                    .share_modified_ns = copied.result.share_modified_ns});
    sampling_.spoilt.erase(copy.path);
    tally_.finished(copy.count, copied.result.size);
    counts_.denied_in_a_row = 0;
    return Answer::whole;
}

FailureStep RunPlan::end_process(LaneId lane, const std::string& why) {
    const auto found = given_.find(lane);
    const auto* copy = found == given_.end() ? nullptr : std::get_if<CopyFile>(&found->second.what);
    const std::string text = copy ? copy->path + ": " + why : why;
    FailureStep step = fail(lane, {FailureKind::other, text});
    // Of a process that ends without being given up for it, its end is told and no file.
    if (step.kind == FailureStep::Kind::lose_lane) step.why = why;
    return step;
}

FailureStep RunPlan::fail(LaneId lane, const Failed& failed) {
    using Kind = FailureStep::Kind;
    if (phase_ == Phase::noting_room) {
        lose(lane);
        return {Kind::replace_lane, ""};
    }
    if (!is_busy(lane)) return fail_to_connect(failed);
    const bool checks = std::holds_alternative<CheckCopy>(given_.at(lane).what);
    if (checks && !ends_connection(failed.kind)) return fail_to_check(lane, failed);
    if (is_abandoned(given_.at(lane)) && !ends_connection(failed.kind)) {
        given_.erase(lane);  // the next run tries again
        return {failed.kind == FailureKind::other ? Kind::replace_lane : Kind::go_on, ""};
    }
    switch (failed.kind) {
        case FailureKind::lost:
        case FailureKind::unknown:
            return {Kind::lose_lane, failed.text};
        case FailureKind::refused:
            break;
        case FailureKind::other:
            return try_again(lane, failed);
        case FailureKind::full:
            return find_full(lane, failed);
        case FailureKind::denied:
        case FailureKind::gone:
        case FailureKind::source:
        case FailureKind::occupied:
        case FailureKind::mismatch:
            return give_up(lane, failed);
    }
    return {Kind::end_run, failed.text};
}

/// A name that was known is known again when its service answers.
FailureStep RunPlan::fail_to_connect(const Failed& failed) const {
    const bool for_good = failed.kind == FailureKind::refused ||
                          (failed.kind == FailureKind::unknown && !was_connected_);
    return {for_good ? FailureStep::Kind::end_run : FailureStep::Kind::lose_lane, failed.text};
}

FailureStep RunPlan::try_again(LaneId lane, const Failed& failed) {
    if (++given_.at(lane).attempts < ATTEMPTS) return {FailureStep::Kind::lose_lane, failed.text};
    FailureStep step = give_up(lane, failed);
    if (step.kind == FailureStep::Kind::go_on) step.kind = FailureStep::Kind::replace_lane;
    return step;
}

/// A run goes on without a file, a day or a channel, but not when it cannot do anything else.
FailureStep RunPlan::give_up(LaneId lane, const Failed& failed) {
    const Work& work = given_.at(lane);
    const auto* copy = std::get_if<CopyFile>(&work.what);
    const bool unread = failed.kind == FailureKind::source && is_listing_recordings(work);
    if (!copy && !unread) return {FailureStep::Kind::end_run, failed.text};
    if (copy) {
        sampling_.spoilt.erase(copy->path);
        give_up_file(copy->count, failed.text, copy->path);
    } else {
        give_up_source(work, failed.text);
    }
    given_.erase(lane);
    if (failed.kind != FailureKind::denied || ++counts_.denied_in_a_row < MOST_DENIED) return {};
    return {FailureStep::Kind::end_run, tally_.failure()};
}

void RunPlan::give_up_source(const Work& work, const std::string& why) {
    if (const auto* look = std::get_if<LookAtDay>(&work.what)) {
        give_up_day(look->day, why);
        return pass_row(*look);
    }
    if (const auto* seek = std::get_if<SeekRecordings>(&work.what))
        return give_up_day(seek->day, why);
    tally_.plan(1, 0);
    give_up_file({}, why);
}

void RunPlan::give_up_file(const FileCount& file, const std::string& why, const std::string& path) {
    tally_.gave_up(file, why, path);
    if (tally_.files_failed() <= FAILURES_TOLD) notes_.push_back({FILE_NOT_COPIED, why});
}

}  // namespace services
