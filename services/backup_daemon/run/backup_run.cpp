// One run of one task: ties plan, lanes and figures to the clock until the run tells its end.
#include "services/backup_daemon/run/backup_run.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "services/backup_daemon/copy/pace.h"

namespace services {
namespace {

// What cannot be stored is tried again after a pause, for so long.
constexpr std::chrono::seconds REFUSAL_PAUSE(1);
constexpr std::chrono::seconds LONGEST_REFUSAL(60);

// Losses of the connection that are told: a bad line must not push everything else out of the log.
constexpr int LOSSES_TOLD = 10;

}  // namespace

BackupRun::BackupRun(RunParts parts, TDataBackupConfig task, RunGoal goal, Listener listener)
    : parts_(std::move(parts)),
      task_(std::move(task)),
      listener_(std::move(listener)),
      tally_(parts_.clock, parts_.earlier),
      plan_(std::move(goal), *parts_.places, *parts_.memory, tally_),
      connection_(now()) {}

std::chrono::seconds BackupRun::now() const {
    return std::chrono::duration_cast<std::chrono::seconds>(parts_.clock.steady());
}

void BackupRun::begin() {
    parts_.lanes->listen({[this](LaneId lane, const Report& report) {
                              hear({lane, report, ""});
                          },
                          [this](LaneId lane, const std::string& why) {
                              hear({lane, {}, why});
                          }});
    const Destination& destination = plan_.goal().destination;
    if (destination.server.empty() || destination.share.empty())
        return end(RunOutcome::failed, "the task names no server and share");
    pause_ = parts_.clock.after({}, [this] {
        pause_.reset();
        advance();
    });
}

void BackupRun::cancel() {
    end(RunOutcome::cancelled, "");
}

void BackupRun::look_after() {
    tally_.note_speed();
    std::vector<LaneId> silent;
    for (const auto& [lane, state] : lanes_) {
        const bool has_said = std::ranges::any_of(
            inbox_, [&, owner = lane](const Said& said) { return said.lane == owner; });
        const bool expected = (plan_.is_busy(lane) || !state.ready) && !has_said;
        if (expected && now() - state.heard >= LONGEST_SILENCE) silent.push_back(lane);
    }
    for (const LaneId lane : silent) lose(lane, "the server does not answer");
    advance();
}

void BackupRun::hear(Said said) {
    const auto known = lanes_.find(said.lane);
    if (ending_ || known == lanes_.end()) return;
    known->second.heard = now();
    const auto last = std::find_if(inbox_.rbegin(), inbox_.rend(),
                                   [&](const Said& other) { return other.lane == said.lane; });
    // How far a lane is, it says all the time.
    if (last != inbox_.rend() && last->is_on_the_way() && said.is_on_the_way())
        *last = std::move(said);
    else
        inbox_.push_back(std::move(said));
    advance();
}

/// Goes as far as lanes and stores allow.
void BackupRun::advance() {
    if (ending_ || (refusal_ && refusal_->again)) return;
    try {
        take_inbox();
        if (!ending_) go_on();
        refusal_.reset();
    } catch (const standalone::DatabaseError& error) {
        hold(error);
    } catch (const std::exception& error) {
        refusal_.reset();
        wait(error.what());
    }
}

void BackupRun::take_inbox() {
    while (!inbox_.empty() && !ending_) {
        understand(inbox_.front());
        // Nothing is stored of how far a lane has come.
        if (!inbox_.front().is_on_the_way()) refusal_.reset();
        inbox_.pop_front();
    }
}

void BackupRun::go_on() {
    plan_.settle();
    tell_notes();
    if (plan_.is_over()) return finish();
    give_orders();
    open_lanes();
}

void BackupRun::hold(const standalone::DatabaseError& error) {
    if (!refusal_) refusal_ = Refusal{.since = now(), .why = "", .again = nullptr};
    const std::string why =
        std::string("the recorder's own database cannot be written: ") + error.what();
    if (now() - refusal_->since >= LONGEST_REFUSAL)
        return end(error.may_pass() ? RunOutcome::interrupted : RunOutcome::failed, why);
    refusal_->why = why;
    refusal_->again = parts_.clock.after(REFUSAL_PAUSE, [this] {
        refusal_->again.reset();
        advance();
    });
}

void BackupRun::tell_notes() {
    for (const RunNote& note : plan_.take_notes())
        parts_.tell(note.event, task_.taskName, note.detail);
}

void BackupRun::give_orders() {
    for (auto& [lane, state] : lanes_) {
        if (!state.ready || plan_.is_busy(lane)) continue;
        const auto order = plan_.next(lane);
        if (!order) continue;
        state.heard = now();
        parts_.lanes->give(lane, *order);
    }
}

/// A small file is mostly round trips, in which a long line stands idle; how large they are on the
/// average says enough, since a few large ones would not leave it small.
std::size_t BackupRun::most_lanes() const {
    const RunGoal& goal = plan_.goal();
    const bool small = tally_.bytes_left() < tally_.files_left() * static_cast<long long>(CHUNK);
    const bool many = connection_.round_trip >= LONG_LINE && small;
    return static_cast<std::size_t>(many ? std::max(goal.lanes, goal.lanes_far) : goal.lanes);
}

/// One alone until a connection stands, then side by side: on a long line each takes its time.
void BackupRun::open_lanes() {
    const std::size_t limit = connection_.stands ? most_lanes() : 1;
    auto connecting =
        std::ranges::count_if(lanes_, [](const auto& lane) { return !lane.second.ready; });
    try {
        for (; !pause_ && lanes_.size() < limit && connecting < plan_.waiting_orders();
             ++connecting)
            lanes_[parts_.lanes->open()].heard = now();
    } catch (const std::exception& error) {
        connection_.stands = false;
        wait(error.what());
    }
}

void BackupRun::understand(const Said& said) {
    if (!lanes_.contains(said.lane)) return;
    try {
        if (!said.report) return follow(said.lane, plan_.end_process(said.lane, said.why));
        understand(said.lane, *said.report);
    } catch (const standalone::DatabaseError&) {
        throw;
    } catch (const std::exception& error) {
        lose(said.lane, error.what());
    }
}

void BackupRun::understand(LaneId lane, const Report& report) {
    if (const auto* failed = std::get_if<Failed>(&report))
        return follow(lane, plan_.fail(lane, *failed));
    const auto* ready = std::get_if<Ready>(&report);
    if (ready && !lanes_.at(lane).ready) return connected(lane, *ready);
    if (!plan_.take(lane, report))
        return lose(lane, "the copying process said what nobody had asked for");
    if (!tally_.take_progress()) return;
    connection_.retry.progressed(now());
    if (connection_.stands) message_.clear();
}

/// The listener first: it may refuse to hear of it for now.
void BackupRun::connected(LaneId lane, const Ready& ready) {
    if (!connection_.was_told) {
        listener_.connected();
        tally_.note_speed();
    }
    connection_.was_told = true;
    connection_.stands = true;
    connection_.round_trip =
        std::min(connection_.round_trip, std::chrono::microseconds(ready.round_trip_us));
    lanes_.at(lane).ready = true;
    message_.clear();
}

void BackupRun::follow(LaneId lane, const FailureStep& step) {
    switch (step.kind) {
        case FailureStep::Kind::go_on:
            return;
        case FailureStep::Kind::replace_lane:
            return drop(lane);
        case FailureStep::Kind::lose_lane:
            return lose(lane, step.why);
        case FailureStep::Kind::end_run:
            return end(RunOutcome::failed, step.why);
    }
}

void BackupRun::drop(LaneId lane) {
    plan_.lose(lane);
    lanes_.erase(lane);
    parts_.lanes->drop(lane);
}

void BackupRun::lose(LaneId lane, const std::string& why) {
    if (ending_ || !lanes_.contains(lane)) return;
    drop(lane);
    connection_.stands = false;
    wait(why);
}

/// Before the next attempt there is a pause, which lanes that still work do not have to make.
void BackupRun::wait(const std::string& why) {
    if (pause_) return;
    const auto pause = connection_.retry.lost(now());
    if (!pause) return end(RunOutcome::failed, why);
    ++retries_;
    if (message_ != why && ++connection_.losses_told <= LOSSES_TOLD)
        parts_.tell(CONNECTION_LOST, task_.taskName, why);
    message_ = why;
    pause_ = parts_.clock.after(*pause, [this] {
        pause_.reset();
        advance();
    });
}

void BackupRun::finish() {
    const std::string why = plan_.failure();
    end(why.empty() ? RunOutcome::success : RunOutcome::failed, why);
}

/// The listener hears of it when nothing of the run is being executed.
void BackupRun::end(RunOutcome outcome, const std::string& why) {
    if (ending_) return;
    tell_notes();
    message_ = why;
    refusal_.reset();
    pause_.reset();
    ending_ = parts_.clock.after({}, [this, outcome, why] {
        parts_.lanes.reset();
        const auto ended = listener_.ended;
        ended(outcome, why);
    });
}

}  // namespace services
