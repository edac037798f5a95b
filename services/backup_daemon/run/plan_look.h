// Drives a plan that only looks over one lane, one order after the other, until it is over.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "services/backup_daemon/run/lane_pool.h"
#include "services/backup_daemon/run/run_plan.h"
#include "services/clock.h"

namespace services {

/// Nothing is tried again: what fails ends the look, and so does a lane that says nothing for as
/// long as in a run.
class PlanLook {
public:
    /// All of them outlive the look.
    /// @param over called once, from the loop, when the plan is over or the look has failed
    PlanLook(Clock& clock, RunPlan& plan, LanePool& lanes, std::function<void()> over);
    PlanLook(const PlanLook&) = delete;
    PlanLook& operator=(const PlanLook&) = delete;

    /// Opens the lane. @throws std::runtime_error when there is none to be had
    void begin();

    /// Why the look has failed; nothing when it has not.
    const std::optional<std::string>& failure() const { return failure_; }

private:
    void hear(LaneId lane, const Report& report);
    void understand(LaneId lane, const Report& report);
    void fail(LaneId lane, const Failed& failed);
    void go_on(LaneId lane);
    void be_patient();
    void give_up(const std::string& why);
    void end();

    Clock& clock_;
    RunPlan& plan_;
    LanePool& lanes_;
    std::function<void()> over_;
    std::optional<std::string> failure_;
    std::unique_ptr<Clock::Alarm> patience_;  ///< rings when nothing has been heard for too long
};

}  // namespace services
