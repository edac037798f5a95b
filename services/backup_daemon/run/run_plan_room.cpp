// What a run's plan does about room on the share, and about what it removes there.
#include <algorithm>
#include <limits>
#include <utility>

#include "services/backup_daemon/run/run_plan.h"

namespace services {
namespace {

// Copies of a day that make room at one time.
constexpr int ROOM_FILES = 100;

// Files that stood in the place of a copy and get an event of their own.
constexpr long long NOT_OURS_TOLD = 10;

constexpr long long ALL = std::numeric_limits<long long>::max();

std::string bytes_text(long long bytes) {
    return std::to_string(bytes) + " bytes";
}

/// "... the share has 5 bytes free and 7 bytes can be removed".
std::string room_text(const ShareRoom& room, long long removable) {
    const std::string text = "the share has " + bytes_text(room.free) + " free";
    return removable > 0 ? text + " and " + bytes_text(removable) + " could be removed" : text;
}

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

}  // namespace

/// Planned bytes against free ones and those that may make way. What was begun is there in part.
RunPlan::Answer RunPlan::answer(WeighRun&, const Room& found) {
    if (!found.room) return Answer::whole;
    long long needed = tally_.bytes_left();
    for (const Checkpoint& checkpoint : memory_.checkpoints()) needed -= checkpoint.offset;
    const bool may_remove = goal_.when_full == WhenFull::remove_oldest && why_copies_stay().empty();
    const std::string last = days_.empty() ? "" : days_.back().where.day;
    const long long removable = may_remove ? memory_.amount_older_than(last, {}, ALL).bytes : 0;
    weighed_.room = found.room;
    weighed_.can_make_way = removable;
    weighed_.fits = needed - found.room->free <= removable;
    if (!weighed_.fits)
        notes_.push_back({WILL_NOT_FIT, bytes_text(needed) + " are to be copied, " +
                                            room_text(*found.room, removable)});
    return Answer::whole;
}

/// When a file is sent alone, it is because of what others had left on the share.
bool RunPlan::may_go_now(const Work& work) const {
    if (!room_.one_by_one || !is_copy(work)) return true;
    return std::ranges::none_of(ready_, is_leftover) &&
           std::ranges::none_of(given_, [](const auto& lane) { return takes_room(lane.second); });
}

/// Whether the share may have room for a file when others are done, or are gone from it.
bool RunPlan::others_take_room(LaneId lane) const {
    return std::ranges::any_of(ready_, is_leftover) ||
           std::ranges::any_of(given_, [&](const auto& other) {
               return other.first != lane && takes_room(other.second);
           });
}

/// What there is of the file goes, so that the others can have room, and it is sent anew.
void RunPlan::send_one_by_one(LaneId lane) {
    const auto begun = memory_.checkpoint(std::get<CopyFile>(given_.at(lane).what).path);
    room_.one_by_one = true;
    lose(lane);
    if (begun) ready_.push_front({leftover_work(goal_, names_, *begun)});
}

/// The share is full. The file waits until there is room; room that has been made since its order
/// was given is tried first.
FailureStep RunPlan::find_full(LaneId lane, const Failed& failed) {
    const auto* copy = std::get_if<CopyFile>(&given_.at(lane).what);
    if (!copy) return {FailureStep::Kind::end_run, failed.text};
    const bool on_its_way = room_.in_the_making || copy->rooms < room_.made;
    if (stopped_.empty() && !on_its_way) {
        if (has_older_copies(*copy)) {
            const long long needed = copy->count.planned - copy->count.done;
            ready_.push_front({SeekRoom{copy->day, copy->path, needed}});
            room_.in_the_making = true;
        } else if (others_take_room(lane)) {
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
    const bool doubted = goal_.when_full == WhenFull::remove_oldest && !date_doubt_.empty();
    return doubted ? "; " + date_doubt_ + ", and no copy makes room until then" : "";
}

/// Whether there are copies that may make room for a file: of days before its own.
bool RunPlan::has_older_copies(const CopyFile& copy) {
    if (goal_.when_full == WhenFull::fail || !why_copies_stay().empty()) return false;
    const std::string oldest = memory_.oldest_day();
    return !oldest.empty() && oldest < days_[copy.day].where.day;
}

/// Nothing goes for a file that cannot have room even then.
RunPlan::Answer RunPlan::answer(SeekRoom& seek, const Room& found) {
    const std::string& day = days_[seek.day].where.day;
    const long long lacking = found.room ? seek.needed - found.room->free : 0;
    const long long removable = memory_.amount_older_than(day, {}, lacking).bytes;
    if (removable >= lacking) {
        make_room(day);
    } else {
        give_up_for_room(seek, seek.path + ": needs " + bytes_text(seek.needed) + ", " +
                                   room_text(*found.room, removable));
    }
    return Answer::whole;
}

/// The oldest copied day goes.
void RunPlan::make_room(const std::string& day) {
    const std::string oldest = memory_.oldest_day();
    auto copies = memory_.older_than(day, ROOM_FILES, {});
    std::erase_if(copies, [&](const CopiedFile& file) { return file.day != oldest; });
    // Another task may have taken the copies over since room was asked for.
    room_.in_the_making = !copies.empty();
    if (copies.empty()) return;
    ready_.push_front({removal_work(RemoveCopies::Why::room, std::move(copies), names_)});
}

/// What there is of the file goes at once: others may have room then.
void RunPlan::give_up_for_room(const SeekRoom& seek, const std::string& why) {
    const auto begun = memory_.checkpoint(seek.path);
    const auto waiting = std::ranges::find_if(ready_, [&](const Work& work) {
        const auto* copy = std::get_if<CopyFile>(&work.what);
        return copy && copy->path == seek.path;
    });
    tell_full(why);
    give_up_file(std::get<CopyFile>(waiting->what).count, why);
    ready_.erase(waiting);
    room_.in_the_making = false;
    if (begun) ready_.push_front({leftover_work(goal_, names_, *begun)});
}

void RunPlan::tell_full(const std::string& why) {
    if (!std::exchange(room_.full_was_told, true)) notes_.push_back({SHARE_FULL, why});
}

/// A sign of life between two files.
RunPlan::Answer RunPlan::answer(RemoveCopies&, const At&) {
    return Answer::part;
}

/// The memory first: what it refuses is removed, and told, once more.
RunPlan::Answer RunPlan::answer(RemoveCopies& removal, const Removed& removed) {
    const auto& copies = removal.copies;
    for (const CopiedFile& copy : copies) finish_removal(copy, removal.why);
    if (removal.is_of_temporary_files()) return Answer::whole;
    for (std::size_t copy = 0; copy < copies.size(); ++copy)
        note_fate(copies[copy], removed.files.at(copy));
    const long long stayed = std::ranges::count(removed.files, Fate::stayed);
    const long long gone = static_cast<long long>(copies.size()) - stayed;
    if (removal.why == RemoveCopies::Why::retention) {
        counts_.removed += gone;
        return Answer::whole;
    }
    room_.in_the_making = false;
    ++room_.made;
    notes_.push_back({ROOM_MADE, copies.front().day + ", " + std::to_string(gone) + " files"});
    return Answer::whole;
}

/// Whatever became of a file, it is not looked for again: what stands there now is nobody's copy.
void RunPlan::finish_removal(const CopiedFile& copy, RemoveCopies::Why why) {
    switch (why) {
        case RemoveCopies::Why::leftover:
            return memory_.drop_checkpoint(copy.path);
        case RemoveCopies::Why::abandoned:
            return memory_.drop_abandoned(copy.path);
        case RemoveCopies::Why::retention:
            return memory_.forget(copy.path);
        case RemoveCopies::Why::room:
            return memory_.mark_removed(copy.path);
    }
}

void RunPlan::note_fate(const CopiedFile& copy, Fate fate) {
    if (fate == Fate::gone || ++counts_.not_ours > NOT_OURS_TOLD) return;
    const std::string which = fate == Fate::stayed ? "" : "the description of ";
    notes_.push_back({COPY_NOT_REMOVED, which + copy.path + " is not as it was copied, and stays"});
}

}  // namespace services
