// What a run's plan makes of copies that have gone from the share, or have not.
#include <algorithm>
#include <utility>

#include "services/backup_daemon/run/run_plan.h"

namespace services {
namespace {

// Files that stood in the place of a copy and get an event of their own.
constexpr long long NOT_OURS_TOLD = 10;

/// Those that the share does not have any more, whoever has removed them.
standalone::FileAmount amount_gone(const std::vector<CopiedFile>& copies,
                                   const std::vector<Fate>& fates) {
    standalone::FileAmount gone;
    for (std::size_t copy = 0; copy < copies.size(); ++copy) {
        if (fates[copy] == Fate::stayed) continue;
        ++gone.files;
        gone.bytes += copies[copy].size;
    }
    return gone;
}

/// Bytes that the share has lost.
long long bytes_gone(const std::vector<CopiedFile>& copies, const std::vector<Fate>& fates) {
    long long bytes = 0;
    for (std::size_t copy = 0; copy < copies.size(); ++copy)
        if (fates[copy] == Fate::gone || fates[copy] == Fate::description_stayed)
            bytes += copies[copy].size;
    return bytes;
}

}  // namespace

/// What may fail first: all of this may have to be done again.
void RunPlan::finish_retention() {
    const std::string text = goal_.first_kept_day.empty() ? "" : retention_text();
    plan_leftovers();
    if (!text.empty()) notes_.push_back({RETENTION_PASS, text});
}

std::string RunPlan::retention_text() {
    std::string text = std::to_string(counts_.removed) + " files of days before " +
                       goal_.first_kept_day + " removed";
    const std::string why = why_copies_stay();
    if (!why.empty()) return text + ": " + why;
    const long long kept =
        memory_.amount_older_than(goal_.first_kept_day, {}, CopyMemory::ALL).files;
    if (kept == 0) return text;
    return text + "; " + std::to_string(kept) + " stay, of the newest day that a camera has";
}

/// A sign of life between two files.
RunPlan::Answer RunPlan::answer(RemoveCopies&, const At&) {
    return Answer::part;
}

/// The memory first: what it refuses is removed, and told, once more.
RunPlan::Answer RunPlan::answer(RemoveCopies& removal, const Removed& removed) {
    const auto& copies = removal.copies;
    for (const CopiedFile& copy : copies) finish_removal(copy, removal.why);
    if (removal.why == RemoveCopies::Why::leftover) note_others_went();
    if (removal.is_of_temporary_files()) return Answer::whole;
    for (std::size_t copy = 0; copy < copies.size(); ++copy)
        note_fate(copies[copy], removed.files.at(copy));
    const standalone::FileAmount gone = amount_gone(copies, removed.files);
    tally_.removed(gone);
    if (removal.why == RemoveCopies::Why::retention) {
        counts_.removed += gone.files;
        return Answer::whole;
    }
    notes_.push_back(
        {ROOM_MADE, copies.front().day + ", " + std::to_string(gone.files) + " files"});
    prove_room(bytes_gone(copies, removed.files));
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
    const bool is_gone = fate == Fate::gone || fate == Fate::missing;
    if (is_gone || ++counts_.not_ours > NOT_OURS_TOLD) return;
    const std::string which = fate == Fate::stayed ? "" : "the description of ";
    notes_.push_back({COPY_NOT_REMOVED, which + copy.path + " is not as it was copied, and stays"});
}

}  // namespace services
