// Drives a plan that only looks over one lane, one order after the other, until it is over.
#include "services/backup_daemon/run/plan_look.h"

#include <utility>

#include "services/backup_daemon/run/retry_pause.h"

namespace services {

PlanLook::PlanLook(Clock& clock, RunPlan& plan, LanePool& lanes, std::function<void()> over)
    : clock_(clock), plan_(plan), lanes_(lanes), over_(std::move(over)) {
    lanes_.listen({[this](LaneId lane, const Report& report) { hear(lane, report); },
                   [this](LaneId, const std::string& why) { give_up(why); }});
}

void PlanLook::begin() {
    be_patient();
    lanes_.open();
}

void PlanLook::hear(LaneId lane, const Report& report) {
    if (!over_) return;
    be_patient();
    try {
        understand(lane, report);
    } catch (const std::exception& error) {
        give_up(error.what());
    }
}

void PlanLook::understand(LaneId lane, const Report& report) {
    if (const auto* failed = std::get_if<Failed>(&report)) return fail(lane, *failed);
    const bool ready = std::holds_alternative<Ready>(report);
    if (!ready && !plan_.take(lane, report)) return give_up("nobody asked for that");
    go_on(lane);
}

/// What this machine cannot read the preview tells; a run would go on without it, too.
void PlanLook::fail(LaneId lane, const Failed& failed) {
    const bool go =
        plan_.is_busy(lane) && plan_.fail(lane, failed).kind == FailureStep::Kind::go_on;
    if (!go) return give_up(failed.text);
    go_on(lane);
}

void PlanLook::go_on(LaneId lane) {
    plan_.settle();
    if (plan_.is_over()) return end();
    if (const auto order = plan_.next(lane)) lanes_.give(lane, *order);
}

void PlanLook::be_patient() {
    patience_ = clock_.after(LONGEST_SILENCE, [this] { give_up("the server does not answer"); });
}

/// The first reason counts: a process that has failed ends behind it.
void PlanLook::give_up(const std::string& why) {
    if (!failure_) failure_ = why;
    end();
}

void PlanLook::end() {
    patience_.reset();
    if (const auto over = std::exchange(over_, nullptr)) over();
}

}  // namespace services
