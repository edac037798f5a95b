// What a run makes of its processes' reports, and of their silence.
#include <algorithm>
#include <utility>

#include "services/backup_daemon/run/backup_run.h"
#include "services/backup_daemon/run/run_clock.h"
#include "services/backup_daemon/tell/run_events.h"

namespace services {
namespace {

// A failure that nobody can tell the meaning of may be the connection's.
constexpr int ATTEMPTS = 3;

// Failures that get an event of their own; the run's end tells how many there were.
constexpr long long FAILURES_TOLD = 10;

// Losses of the connection that do: a bad line must not push everything else out of the log.
constexpr int LOSSES_TOLD = 10;

// So many files refused one after the other: it is the share, not the files.
constexpr int MOST_DENIED = 20;

constexpr int STOP_WHEN_FULL = 0;  // row of strRemoteOverwrite_Arr

// Copies of a day that make room at one time.
constexpr int ROOM_FILES = 100;

}  // namespace

void BackupRun::hear(LanePlace lane) {
    while (!stopping_) {
        const auto report = lane->worker->receive();
        if (report && std::holds_alternative<Failed>(*report))
            return fail(lane, std::get<Failed>(*report));
        if (report) {
            heard(lane, *report);
            continue;
        }
        if (lane->worker->ended()) return lose(lane, "the copying process ended");
        return advance();
    }
}

void BackupRun::heard(LanePlace lane, const Report& report) {
    lane->heard = monotonic_seconds();
    std::visit(
        [&](const auto& which) {
            if constexpr (!std::is_same_v<std::decay_t<decltype(which)>, Failed>) on(*lane, which);
        },
        report);
}

void BackupRun::on(Lane& lane, const Ready&) {
    lane.ready = true;
    probing_ = false;
    message_.clear();
    if (was_connected_) return;
    was_connected_ = true;
    rate_.note(monotonic_milliseconds(), 0);
    listener_.connected();
}

void BackupRun::on(Lane& lane, const Days& days) {
    for (const std::string& day : days.names) days_.push_back({lane.item->day, day});
    lane.item.reset();
}

void BackupRun::on(Lane& lane, const Entries& entries) {
    auto& found = lane.item->found;
    found.insert(found.end(), entries.entries.begin(), entries.entries.end());
}

void BackupRun::set_done(Item& item, long long bytes) {
    const long long change = bytes - item.done;
    bytes_done_ += change;
    item.done = bytes;
    // What an earlier attempt had sent is there, but it was not moved now.
    if (!std::exchange(item.begun, true) || change <= 0) return;
    bytes_moved_ += change;
    retry_.progressed(monotonic_seconds());
}

void BackupRun::on(Lane& lane, const At& at) {
    if (lane.item && std::holds_alternative<CopyJob>(lane.item->order))
        set_done(*lane.item, at.offset);
}

void BackupRun::on(Lane& lane, const Noted& noted) {
    Item& item = *lane.item;
    set_done(item, noted.offset);
    const std::string temporary = below_folder(std::get<CopyJob>(item.order).temporary);
    copies_.save({path_of(days_[item.day], item.entry), temporary, noted.offset, noted.sha256});
}

void BackupRun::on(Lane& lane, const Copied& copied) {
    Item& item = *lane.item;
    const CopyResult& result = copied.result;
    bytes_planned_ += result.size - item.entry.size;
    set_done(item, result.size);
    retry_.progressed(monotonic_seconds());
    const DayWork& work = days_[item.day];
    copies_.record({path_of(work, item.entry), work.day, result.size, result.modified_ns,
                    result.sha256, std::get<CopyJob>(item.order).side_file.has_value(), false});
    ++files_done_;
    denied_in_a_row_ = 0;
    lane.item.reset();
}

void BackupRun::on(Lane& lane, const Done&) {
    const std::unique_ptr<Item> item = std::move(lane.item);
    const auto* listed = std::get_if<ListDay>(&item->order);
    if (!listed) return removed(*item);
    if (listed->ask_share) listing_ = false;
    take_day(*item);
}

void BackupRun::fail(LanePlace lane, const Failed& failed) {
    switch (failed.kind) {
        case Failed::Kind::lost:
            return lose(lane, failed.text);
        case Failed::Kind::refused:
            return end(RunOutcome::failed, failed.text);
        case Failed::Kind::full:
            make_room(*lane, failed.text);
            break;
        case Failed::Kind::other:
            return try_file_again(lane, failed);
        default:
            give_up_file(*lane, failed);
    }
    advance();
}

/// The order waits for another lane.
void BackupRun::put_back(Lane& lane) {
    if (!lane.item) return;
    lane.item->found.clear();
    ready_.push_front(std::move(lane.item));
}

void BackupRun::lose(LanePlace lane, const std::string& why) {
    put_back(*lane);
    lanes_.erase(lane);
    probing_ = true;
    if (pause_) return;
    const auto pause = retry_.lost(monotonic_seconds());
    if (!pause) return end(RunOutcome::failed, why);
    if (message_ != why && ++losses_ <= LOSSES_TOLD)
        write_run_event(CONNECTION_LOST, task_.taskName, why);
    message_ = why;
    pause_ = EventWatch::after(house_.loop, *pause, [this] {
        pause_.reset();
        advance();
    });
}

void BackupRun::try_file_again(LanePlace lane, const Failed& failed) {
    if (!lane->item || ++lane->item->attempts < ATTEMPTS) return lose(lane, failed.text);
    give_up_file(*lane, failed);
    lanes_.erase(lane);
    advance();
}

void BackupRun::give_up_file(Lane& lane, const Failed& failed) {
    const std::unique_ptr<Item> item = std::move(lane.item);
    if (!item || !std::holds_alternative<CopyJob>(item->order))
        return end(RunOutcome::failed, failed.text);
    ++files_failed_;
    bytes_planned_ -= item->entry.size;
    bytes_done_ -= item->done;
    if (first_failure_.empty()) first_failure_ = failed.text;
    if (files_failed_ <= FAILURES_TOLD)
        write_run_event(FILE_NOT_COPIED, task_.taskName, failed.text);
    if (failed.kind != Failed::Kind::denied) return;
    if (++denied_in_a_row_ == MOST_DENIED) finish();
}

/// The share is full. The oldest copied day goes, as long as it is older than what is to come.
void BackupRun::make_room(Lane& lane, const std::string& why) {
    const std::string day = days_[lane.item->day].day;
    // Room that has been made since the order was given is tried first.
    const bool made_meanwhile = lane.item->rooms < rooms_made_;
    put_back(lane);
    if (making_room_ || made_meanwhile) return;
    const std::string oldest = copies_.oldest_day();
    if (task_.remoteOverwriteType == STOP_WHEN_FULL || oldest.empty() || oldest >= day) {
        write_run_event(SHARE_FULL, task_.taskName, why);
        return end(RunOutcome::failed, "the share is full: " + why);
    }
    making_room_ = true;
    auto files = copies_.older_than(day, ROOM_FILES);
    std::erase_if(files, [&](const auto& file) { return file.day != oldest; });
    plan_removal(files);
}

}  // namespace services
