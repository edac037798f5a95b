// What a run's plan does about room on the share: weighs, has older copies make way, sees whether
// that has helped.
#include <algorithm>
#include <utility>

#include "services/backup_daemon/run/run_plan.h"

namespace services {
namespace {

// Copies of a day that make room at one time.
constexpr int ROOM_FILES = 100;

// A share that has more than this part of its bytes free is not full, whatever it refuses.
constexpr long long SPACIOUS = 10;

std::string bytes_text(long long bytes) {
    return std::to_string(bytes) + " bytes";
}

/// "... the share has 5 bytes free and 7 bytes can be removed".
std::string room_text(const ShareRoom& room, long long removable) {
    const std::string text = "the share has " + bytes_text(room.free) + " free";
    return removable > 0 ? text + " and " + bytes_text(removable) + " could be removed" : text;
}

}  // namespace

/// Copies that are only to be compared have their room.
long long RunPlan::bytes_to_copy() const {
    long long bytes = 0;
    for (const Day& day : days_) bytes += day.to_copy.bytes;
    return bytes;
}

/// Planned bytes against free ones and those that may make way. What was begun is there in part.
/// Only who looks at a preview wants to know of more copies than have to make way: there may be
/// millions, and the loop waits while they are counted.
RunPlan::Answer RunPlan::answer(WeighRun&, const Room& found) {
    if (!goal_.makes_nothing()) note_room(found.room);
    if (!found.room) return Answer::whole;
    long long needed = bytes_to_copy();
    for (const Checkpoint& checkpoint : memory_.checkpoints()) needed -= checkpoint.offset;
    const bool may_remove = goal_.when_full == WhenFull::remove_oldest && why_copies_stay().empty();
    const std::string last = days_.empty() ? "" : where(days_.size() - 1).day;
    const long long lacking = needed - found.room->free;
    const long long enough = goal_.is_preview() ? CopyMemory::ALL : lacking;
    const long long removable = may_remove ? memory_.amount_older_than(last, {}, enough).bytes : 0;
    weighed_.room = found.room;
    weighed_.can_make_way = removable;
    weighed_.fits = lacking <= removable;
    if (!weighed_.fits)
        notes_.push_back({WILL_NOT_FIT, bytes_text(needed) + " are to be copied, " +
                                            room_text(*found.room, removable)});
    return Answer::whole;
}

/// Nothing goes for a file that cannot have room even then.
RunPlan::Answer RunPlan::answer(SeekRoom& seek, const Room& found) {
    const long long lacking = found.room ? seek.needed - found.room->free : 0;
    if (lacking <= 0) {
        doubt_full(seek, found.room);
        return Answer::whole;
    }
    const std::string day = where(seek.day).day;
    const long long removable = memory_.amount_older_than(day, {}, lacking).bytes;
    if (removable >= lacking)
        make_room(seek, found.room);
    else
        give_up_for_room(seek.path, seek.path + ": needs " + bytes_text(seek.needed) + ", " +
                                        room_text(*found.room, removable));
    return Answer::whole;
}

/// By what the server tells, the file has room, or nobody knows. It is tried once more; then copies
/// make room a single time, but none where plenty is free: nobody can see whether that helps.
void RunPlan::doubt_full(const SeekRoom& seek, const std::optional<ShareRoom>& room) {
    CopyFile& file = std::get<CopyFile>(waiting_file(seek.path)->what);
    const bool is_spacious = room && room->free > room->total / SPACIOUS;
    if (file.doubts == 0) {
        room_.in_the_making = false;
    } else if (file.doubts == 1 && !is_spacious) {
        make_room(seek, room);
    } else {
        give_up_for_room(seek.path, seek.path + ": the share takes no more of it, " +
                                        (room ? "though it has " + bytes_text(room->free) + " free"
                                              : "and does not tell how much room it has"));
        return;
    }
    ++file.doubts;
}

/// The oldest copied day goes.
void RunPlan::make_room(const SeekRoom& seek, const std::optional<ShareRoom>& room) {
    const std::string oldest = memory_.oldest_day();
    auto copies = memory_.older_than(where(seek.day).day, ROOM_FILES, {});
    std::erase_if(copies, [&](const CopiedFile& file) { return file.day != oldest; });
    // Another task may have taken the copies over since room was asked for.
    room_.in_the_making = !copies.empty();
    if (copies.empty()) return;
    if (room) room_.proof = ProveRoom{.path = seek.path, .free_before = room->free};
    ready_.push_front({removal_work(RemoveCopies::Why::room, std::move(copies), names_)});
}

/// Where nothing has gone nothing is to be proved.
void RunPlan::prove_room(long long removed) {
    room_.in_the_making = room_.proof && removed > 0;
    if (room_.in_the_making) {
        room_.proof->removed = removed;
        ready_.push_front({*room_.proof});
    }
    room_.proof.reset();
}

/// Half of it is enough: others may write there, too.
long long RunPlan::awaited_room(const ProveRoom& proof) {
    return proof.free_before + proof.removed / 2;
}

/// A server that keeps what was removed would lose all older copies, and have no more room then.
RunPlan::Answer RunPlan::answer(ProveRoom& proof, const Room& found) {
    room_.in_the_making = false;
    if (!found.room || found.room->free >= awaited_room(proof)) return Answer::whole;
    const long long more = std::max(found.room->free - proof.free_before, 0LL);
    give_up_for_room(proof.path, proof.path + ": " + bytes_text(proof.removed) +
                                     " of older copies were removed, and the share has only " +
                                     bytes_text(more) +
                                     " more free than before: does it keep what is deleted?");
    return Answer::whole;
}

RunPlan::Answer RunPlan::answer(NoteRoom&, const Room& found) {
    note_room(found.room);
    return Answer::whole;
}

/// For whoever tells people that the share is nearly full.
void RunPlan::note_room(const std::optional<ShareRoom>& room) {
    std::optional<KnownRoom> known;
    if (room) known = {room->free, room->total};
    places_.note_room(goal_.destination.share_key(), known);
}

std::deque<Work>::iterator RunPlan::waiting_file(const std::string& path) {
    return std::ranges::find_if(ready_, [&](const Work& work) {
        const auto* copy = std::get_if<CopyFile>(&work.what);
        return copy && copy->path == path;
    });
}

/// What there is of the file goes at once: others may have room then.
void RunPlan::give_up_for_room(const std::string& path, const std::string& why) {
    const auto begun = memory_.checkpoint(path);
    const auto waiting = waiting_file(path);
    tell_full(why);
    give_up_file(std::get<CopyFile>(waiting->what).count, why, path);
    ready_.erase(waiting);
    room_.in_the_making = false;
    if (begun) ready_.push_front({leftover_work(goal_, names_, *begun)});
}

}  // namespace services
