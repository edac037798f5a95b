// What a run's plan does with a file that finds the share full.
#include <algorithm>
#include <utility>

#include "services/backup_daemon/run/run_plan.h"

namespace services {
namespace {

bool is_copy(const Work& work) {
    return std::holds_alternative<CopyFile>(work.what);
}

bool is_leftover(const Work& work) {
    const auto* removal = std::get_if<RemoveCopies>(&work.what);
    return removal && removal->why == RemoveCopies::Why::leftover;
}

bool takes_room(const Work& work) {
    return is_copy(work) || is_leftover(work);
}

bool is_for_room(const Work& work) {
    const auto* removal = std::get_if<RemoveCopies>(&work.what);
    return (removal && removal->why == RemoveCopies::Why::room) ||
           std::holds_alternative<SeekRoom>(work.what) ||
           std::holds_alternative<ProveRoom>(work.what);
}

}  // namespace

/// Something failed behind the request for room: what no lane has begun to remove stays.
void RunPlan::take_back_room() {
    if (!why_copies_stay().empty() && std::erase_if(ready_, is_for_room) > 0)
        room_.in_the_making = false;
}

/// Whether a lane is at something that changes how much room there is.
bool RunPlan::room_is_moving() const {
    return std::ranges::any_of(given_, [](const auto& lane) { return takes_room(lane.second); });
}

/// While room is being made, only that goes on, and begins when what was on its way has ended: it
/// is to be seen what comes of it. When a file is sent alone, it is because of what others had left
/// on the share.
bool RunPlan::may_go_now(const Work& work) const {
    if (room_.in_the_making) return is_for_room(work) && !room_is_moving();
    if (!room_.one_by_one || !is_copy(work)) return true;
    return std::ranges::none_of(ready_, is_leftover) && !room_is_moving();
}

/// Whether the share may have room for a file when others are done, or are gone from it. Also when
/// they have gone already: it may have found the share full before, and be heard only now.
bool RunPlan::others_take_room(const CopyFile& copy) {
    return copy.others_went ||
           std::ranges::any_of(memory_.checkpoints(), [&](const Checkpoint& unfinished) {
               return unfinished.path != copy.path;
           });
}

/// A lane is at a file, or removes what there is of it.
bool RunPlan::is_given(const std::string& path) const {
    return std::ranges::any_of(given_, [&](const auto& lane) {
        if (const auto* copy = std::get_if<CopyFile>(&lane.second.what)) return copy->path == path;
        return is_leftover(lane.second) &&
               std::get<RemoveCopies>(lane.second.what).copies.front().path == path;
    });
}

/// What there is of the file goes, so that the others can have room, and so does what nobody is at:
/// a lane that was lost has left it, or an earlier run. All that is wanted is sent anew.
void RunPlan::send_one_by_one(LaneId lane) {
    const auto unfinished = memory_.checkpoints();
    room_.one_by_one = true;
    lose(lane);
    std::erase_if(ready_, is_leftover);
    for (const Checkpoint& checkpoint : unfinished)
        if (!is_given(checkpoint.path))
            ready_.push_front({leftover_work(goal_, names_, checkpoint)});
}

/// The share has room again for files that are on their way, and may have found it full before.
void RunPlan::note_others_went() {
    for (auto& [lane, work] : given_)
        if (auto* copy = std::get_if<CopyFile>(&work.what)) copy->others_went = true;
}

/// The share is full. The file waits until there is room.
FailureStep RunPlan::find_full(LaneId lane, const Failed& failed) {
    const auto* copy = std::get_if<CopyFile>(&given_.at(lane).what);
    if (!copy) return {FailureStep::Kind::end_run, failed.text};
    if (stopped_.empty() && !room_.in_the_making) {
        if (has_older_copies(*copy)) {
            const long long needed = copy->count.planned - copy->count.done;
            ready_.push_front({SeekRoom{copy->day, copy->path, needed}});
            room_.in_the_making = true;
        } else if (others_take_room(*copy)) {
            send_one_by_one(lane);
            return {};
        } else {
            tell_full(failed.text);
            stop("the share is full: " + failed.text + why_nothing_makes_way());
        }
    }
    lose(lane);
    return {};
}

/// What keeps old copies from making room, where there may be some.
std::string RunPlan::why_nothing_makes_way() const {
    if (const std::string failure = tally_.failure(); !failure.empty())
        return "; before that, " + failure;
    if (goal_.when_full == WhenFull::remove_oldest && !sampling_.spoilt.empty())
        return "; there are copies that are not as they were made, and no copy makes room in this "
               "run";
    const bool doubted = goal_.when_full == WhenFull::remove_oldest && !date_doubt_.empty();
    return doubted ? "; " + date_doubt_ + ", and no copy makes room until then" : "";
}

/// Whether there are copies that may make room for a file: of days before its own.
bool RunPlan::has_older_copies(const CopyFile& copy) {
    if (goal_.when_full == WhenFull::fail || !why_copies_stay().empty()) return false;
    const std::string oldest = memory_.oldest_day();
    return !oldest.empty() && oldest < where(copy.day).day;
}

void RunPlan::tell_full(const std::string& why) {
    if (!std::exchange(room_.full_was_told, true)) notes_.push_back({SHARE_FULL, why});
}

}  // namespace services
