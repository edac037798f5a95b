// What a run does next: its phases, and the orders that each is made of.
#include "services/backup_daemon/run/run_plan.h"

#include <algorithm>
#include <utility>

#include "services/backup_daemon/run/date_trust.h"

namespace services {
namespace {

// Files of one order to remove; a packet has its limits.
constexpr int REMOVED_AT_ONCE = 100;

bool is_question_of_room(const Work& work) {
    return std::holds_alternative<SeekRoom>(work.what) ||
           std::holds_alternative<WeighRun>(work.what) ||
           std::holds_alternative<NoteRoom>(work.what);
}

bool is_copying(const Work& work) {
    return is_listing(work) || std::holds_alternative<CopyFile>(work.what);
}

}  // namespace

RunPlan::RunPlan(RunGoal goal, DestinationMemory& places, CopyMemory& memory, RunTally& tally)
    : goal_(std::move(goal)),
      names_(goal_.destination.folder, goal_.recorder, goal_.task_id),
      places_(places),
      memory_(memory),
      tally_(tally) {
    for (const std::string& index : goal_.missing_channels) {
        tally_.plan(1, 0);
        tally_.gave_up({}, "there is no channel " + index);
    }
    if (!goal_.channels.empty() || goal_.purpose == RunPurpose::clean_up)
        ready_.emplace_back().what = SeekPlace();
}

void RunPlan::settle() {
    take_back_room();
    for (;;) {
        look_ahead();
        if (!is_idle() || is_over()) return;
        enter_next_phase();
    }
}

/// Called when nothing of the phase is left.
void RunPlan::enter_next_phase() {
    switch (phase_) {
        case Phase::finding_place:
            if (goal_.purpose == RunPurpose::clean_up) {
                plan_leftovers();
                phase_ = Phase::leftovers;
                return;
            }
            plan_finding_days();
            phase_ = Phase::finding_days;
            return;
        case Phase::finding_days:
            judge_the_date();
            phase_ = Phase::sampling;
            return;
        case Phase::sampling:
            // In steps, until nothing is found.
            if (goal_.is_preview())
                sampling_.spoilt = memory_.spoilt();
            else if (plan_sample())
                return;
            phase_ = Phase::measuring;
            return;
        case Phase::measuring:
            sort_days();
            tally_.measured();
            if (goal_.is_preview() || tally_.bytes_left() > 0) ready_.push_back({WeighRun()});
            phase_ = Phase::weighing;
            return;
        case Phase::weighing:
            if (goal_.is_preview()) {
                phase_ = Phase::over;
                return;
            }
            // In steps, until nothing is found.
            if (!plan_half_removed()) phase_ = Phase::copying;
            return;
        case Phase::copying:
            give_up_spoilt();
            if (!goal_.first_kept_day.empty())
                kept_days_ = memory_.newest_days(goal_.first_kept_day);
            if (stopped_.empty()) tally_.all_planned();
            phase_ = Phase::retention;
            return;
        case Phase::retention:
            // In steps, until nothing is found.
            if (plan_retention()) return;
            finish_retention();
            phase_ = Phase::leftovers;
            return;
        case Phase::leftovers:
            finish_leftovers();
            return;
        case Phase::noting_room:
            // As the run ends: one that is cut off before tells of them once more.
            if (sampling_.was_any) memory_.accept_spoilt();
            phase_ = Phase::over;
            return;
        case Phase::over:
            return;
    }
}

void RunPlan::judge_the_date() {
    const auto known = memory_.date();
    DateJudgement judgement = judge_date(known, newest_recording_, goal_.today);
    if (!goal_.is_preview() && known != judgement.known) memory_.set_date(judgement.known);
    date_doubt_ = std::move(judgement.doubt);
}

/// Why this run removes no copy; "" when it may.
std::string RunPlan::why_copies_stay() const {
    if (!failure().empty()) return "a run that has failed removes none";
    if (!sampling_.spoilt.empty()) return "there are copies that are not as they were made";
    return date_doubt_;
}

/// Completes what a run that was killed had begun to remove.
/// @return whether there is something
bool RunPlan::plan_half_removed() {
    if (!why_copies_stay().empty()) return false;
    auto copies = memory_.half_removed(REMOVED_AT_ONCE);
    if (copies.empty()) return false;
    ready_.push_back({removal_work(RemoveCopies::Why::room, std::move(copies), names_)});
    return true;
}

/// @return whether something is to be removed
bool RunPlan::plan_retention() {
    if (goal_.first_kept_day.empty() || !why_copies_stay().empty()) return false;
    auto copies = memory_.older_than(goal_.first_kept_day, REMOVED_AT_ONCE, kept_days_);
    if (copies.empty()) return false;
    ready_.push_back({removal_work(RemoveCopies::Why::retention, std::move(copies), names_)});
    return true;
}

/// Temporary files whose recording is gone or no longer wanted, and those of deleted tasks.
void RunPlan::plan_leftovers() {
    const auto own = memory_.checkpoints();
    const auto abandoned = memory_.abandoned();
    for (const Checkpoint& checkpoint : own)
        ready_.push_back({leftover_work(goal_, names_, checkpoint)});
    for (const Checkpoint& checkpoint : abandoned)
        ready_.push_back({abandoned_work(names_, checkpoint)});
}

/// Who has had no order has no place either.
void RunPlan::finish_leftovers() {
    if (was_connected_ && goal_.purpose != RunPurpose::clean_up) ready_.push_back({NoteRoom()});
    phase_ = Phase::noting_room;
}

std::optional<Order> RunPlan::next(LaneId lane) {
    const auto place =
        std::ranges::find_if(ready_, [this](const Work& work) { return may_go_now(work); });
    if (place == ready_.end() || is_busy(lane)) return {};
    was_connected_ = true;
    Order order = order_of(*place);
    given_.emplace(lane, std::move(*place));
    ready_.erase(place);
    return order;
}

Order RunPlan::order_of(Work& work) {
    if (std::holds_alternative<SeekPlace>(work.what))
        return FindPlace{.folder = goal_.destination.folder,
                         .recorder = goal_.recorder,
                         .task_id = goal_.task_id,
                         .known = places_.known(),
                         .only_look = goal_.makes_nothing()};
    if (const auto* tell = std::get_if<TellCameras>(&work.what)) return tell->order;
    if (const auto* find = std::get_if<FindDays>(&work.what))
        return ListDays{find->channel->recordings, goal_.selection.first_day,
                        goal_.selection.last_day};
    if (const auto* seek = std::get_if<SeekRecordings>(&work.what)) {
        const ChannelDay day = where(seek->day);
        return ListDays{day.channel->recordings, day.day, day.day};
    }
    if (auto* look = std::get_if<LookAtDay>(&work.what)) return order_of(*look);
    if (const auto* removal = std::get_if<RemoveCopies>(&work.what)) {
        // Known to the memory before the first of them goes: a run after a kill must not send it
        // again, to be in want of the room that it made.
        if (removal->why == RemoveCopies::Why::room) memory_.begin_removal(removal->copies);
        return removal->order;
    }
    if (const auto* proof = std::get_if<ProveRoom>(&work.what))
        return AskRoom{awaited_room(*proof)};
    if (is_question_of_room(work)) return AskRoom();
    if (const auto* check = std::get_if<CheckCopy>(&work.what)) return check->order;
    auto& copy = std::get<CopyFile>(work.what);
    resume(copy);
    return copy.job;
}

/// A file that was begun before goes on where it stopped, under whatever name; of another one the
/// temporary file is known to the memory before it is made.
void RunPlan::resume(CopyFile& copy) {
    const auto known = memory_.checkpoint(copy.path);
    copy.temporary = known ? known->temporary : names_.temporary_path(copy.path);
    if (!known) memory_.save({copy.path, copy.temporary, 0, ""});
    copy.job.temporary = names_.on_share(copy.temporary);
    // An attempt of which no answer came may have been the last one.
    if (known) copy.job.fresh = false;
    copy.count.begun = false;
    copy.others_went = false;
    copy.job.offset = known ? known->offset : 0;
    copy.job.prefix_sha256 = known ? known->sha256 : "";
}

void RunPlan::lose(LaneId lane) {
    // All is done: nobody waits for a connection to ask how much room is left.
    if (phase_ == Phase::noting_room) {
        ready_.clear();
        given_.erase(lane);
    }
    const auto found = given_.find(lane);
    if (found == given_.end()) return;
    if (auto* look = std::get_if<LookAtDay>(&found->second.what)) look->forget();
    const bool is_wanted = stopped_.empty() || !is_copying(found->second);
    if (is_wanted && may_be_tried_again(found->second)) ready_.push_front(std::move(found->second));
    given_.erase(found);
}

/// Nothing more is copied but what lanes are at.
void RunPlan::stop(const std::string& why) {
    std::erase_if(ready_, is_copying);
    next_day_ = days_.size();
    stopped_ = why;
}

std::vector<RunNote> RunPlan::take_notes() {
    return std::exchange(notes_, {});
}

}  // namespace services
