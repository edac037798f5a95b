// One run of one task: looks for recordings, has them copied, cleans up, ends.
#include "services/backup_daemon/run/backup_run.h"

#include <algorithm>
#include <ctime>

#include "services/backup_daemon/run/run_clock.h"
#include "services/backup_daemon/tell/run_events.h"

namespace services {
namespace {

// The library gives up after 20 seconds; a process that says nothing for so long hangs.
constexpr std::chrono::seconds LONGEST_SILENCE(90);

SmbLogin login_of(const TDataBackupConfig& task, const Destination& destination) {
    return {destination.server, destination.port, destination.share, task.username, task.password};
}

}  // namespace

BackupRun::BackupRun(const RunHouse& house, TDataBackupConfig task,
                     const std::vector<standalone::Channel>& channels, Listener listener)
    : house_(house),
      task_(std::move(task)),
      listener_(std::move(listener)),
      destination_(destination_of(task_)),
      copies_(*house_.memory, task_.taskID, destination_.key()),
      today_(local_day(std::time(nullptr), machine_zone)),
      selection_(select_recordings(task_, today_)),
      retry_(monotonic_seconds()) {
    std::vector<std::string> missing;
    channels_ = select_channels(task_.chIdxList, channels, missing);
    for (const std::string& index : missing) {
        ++files_failed_;
        if (first_failure_.empty()) first_failure_ = "there is no channel " + index;
    }
}

BackupRun::~BackupRun() = default;

void BackupRun::begin() {
    plan_days();
    pause_ = EventWatch::after(house_.loop, {}, [this] {
        pause_.reset();
        if (destination_.server.empty() || destination_.share.empty())
            return end(RunOutcome::failed, "the task names no server and share");
        advance();
    });
}

void BackupRun::cancel() {
    end(RunOutcome::cancelled, "");
}

void BackupRun::look_after() {
    rate_.note(monotonic_milliseconds(), bytes_moved_);
    for (auto lane = lanes_.begin(); lane != lanes_.end(); ++lane) {
        const bool busy = lane->item || !lane->ready;
        if (!busy || monotonic_seconds() - lane->heard < LONGEST_SILENCE) continue;
        return lose(lane, "the server does not answer");
    }
}

RunFigures BackupRun::figures() {
    RunFigures figures;
    figures.bytes_planned = bytes_planned_;
    figures.bytes_done = bytes_done_;
    figures.percent = percent_of(bytes_done_, bytes_planned_);
    figures.rate = rate_.rate();
    figures.files_done = files_done_;
    figures.files_left = std::max(files_planned_ - files_done_ - files_failed_, 0LL);
    figures.files_failed = files_failed_;
    figures.seconds_left = seconds_left(bytes_planned_ - bytes_done_, figures.rate);
    figures.message = message_;
    figures.time_ms = std::time(nullptr) * 1000LL;
    return figures;
}

bool BackupRun::is_idle() const {
    return ready_.empty() &&
           std::all_of(lanes_.begin(), lanes_.end(), [](const Lane& lane) { return !lane.item; });
}

/// Gives every lane something to do, and goes to the next phase when nothing is left in this one.
void BackupRun::advance() {
    prepare_more();
    while (is_idle() && !stopping_) next_phase();
    if (stopping_) return;
    bool waiting = false;
    for (Lane& lane : lanes_) {
        waiting = waiting || !lane.ready;
        if (lane.ready && !lane.item) hand_out(lane);
    }
    const std::size_t limit = probing_ ? 1 : static_cast<std::size_t>(house_.lanes);
    if (!ready_.empty() && !pause_ && !waiting && lanes_.size() < limit) open_lane();
}

void BackupRun::next_phase() {
    switch (phase_) {
        case Phase::finding_days:
            phase_ = Phase::measuring;
            return plan_measuring();
        case Phase::measuring:
            phase_ = Phase::copying;
            return prepare_more();
        case Phase::copying:
            if (next_day_ < days_.size()) return;
            phase_ = Phase::retention;
            return plan_retention();
        case Phase::retention:
            // In steps, until nothing is found.
            if (plan_retention(); !ready_.empty()) return;
            phase_ = Phase::leftovers;
            return plan_leftovers();
        case Phase::leftovers:
        case Phase::over:
            phase_ = Phase::over;
            return finish();
    }
}

void BackupRun::open_lane() {
    const auto place = lanes_.emplace(lanes_.end());
    place->heard = monotonic_seconds();
    try {
        place->worker = std::make_unique<Worker>(login_of(task_, destination_));
    } catch (const std::exception& error) {
        return lose(place, error.what());
    }
    place->watch = EventWatch::readable(house_.loop, place->worker->descriptor(),
                                        [this, place] { hear(place); });
}

void BackupRun::hand_out(Lane& lane) {
    auto next = ready_.begin();
    // While room is being made, only that goes on.
    if (making_room_)
        next = std::find_if(ready_.begin(), ready_.end(), [](const auto& item) {
            return std::holds_alternative<RemoveFiles>(item->order);
        });
    if (next == ready_.end()) return;
    lane.item = std::move(*next);
    ready_.erase(next);
    if (std::holds_alternative<CopyJob>(lane.item->order)) note_begin(*lane.item);
    lane.item->rooms = rooms_made_;
    lane.heard = monotonic_seconds();
    lane.worker->send(lane.item->order);
}

/// The temporary file is known to the store before it is made. A file that was begun before goes on
/// where it stopped.
void BackupRun::note_begin(Item& item) {
    auto& job = std::get<CopyJob>(item.order);
    const std::string path = path_of(days_[item.day], item.entry);
    if (const auto known = copies_.checkpoint(path)) {
        job.offset = known->offset;
        job.prefix_sha256 = known->sha256;
        return;
    }
    copies_.save({path, below_folder(job.temporary), 0, ""});
}

/// Looks the next day up before the lanes run out of files.
void BackupRun::prepare_more() {
    if (phase_ != Phase::copying || listing_ || making_room_ || next_day_ == days_.size()) return;
    if (ready_.size() < static_cast<std::size_t>(house_.lanes)) plan_day_listing();
}

void BackupRun::finish() {
    if (files_failed_ == 0) return end(RunOutcome::success, "");
    const long long all = std::max(files_planned_, files_failed_);
    end(RunOutcome::failed, std::to_string(files_failed_) + " of " + std::to_string(all) +
                                " files could not be copied; the first: " + first_failure_);
}

/// The listener hears of it when nothing of the run is being executed.
void BackupRun::end(RunOutcome outcome, const std::string& why) {
    if (stopping_) return;
    stopping_ = true;
    message_ = why;
    pause_.reset();
    ending_ = EventWatch::after(house_.loop, {}, [this, outcome, why] {
        lanes_.clear();
        const auto ended = listener_.ended;
        ended(outcome, why);
    });
}

}  // namespace services
