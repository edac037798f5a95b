// Looks at what a task's run would do, over one connection, and does nothing of it.
#include "services/backup_daemon/run/preview.h"

#include <ctime>
#include <optional>
#include <stdexcept>

#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/copy_store.h"
#include "services/backup_daemon/memory/destination_store.h"
#include "services/backup_daemon/run/run_goal.h"
#include "services/backup_daemon/run/run_plan.h"
#include "services/backup_daemon/run/worker_lanes.h"
#include "services/clock.h"
#include "services/event_loop.h"

namespace services {
namespace {

TDataBackupConfig stored_task(const std::string& task_id, standalone::Database& config) {
    for (const TDataBackupConfig& task : standalone::TaskStore(config).list())
        if (task_id == task.taskID) return task;
    throw std::runtime_error("there is no task " + task_id);
}

RunGoal preview_goal(const TDataBackupConfig& task, standalone::Database& config) {
    const DayNumber today = local_day(std::time(nullptr), machine_zone);
    RunGoal goal = goal_of(task, standalone::ChannelStore(config).list(), today);
    if (goal.destination.server.empty() || goal.destination.share.empty())
        throw std::runtime_error("the task names no server and share");
    goal.preview = true;
    return goal;
}

/// The lane's order after the other, until the plan is over or anything has failed.
class Look {
public:
    Look(EventLoop& loop, RunPlan& plan, LanePool& lanes)
        : loop_(loop), plan_(plan), lanes_(lanes) {
        lanes_.listen({[this](LaneId lane, const Report& report) {
                           try {
                               hear(lane, report);
                           } catch (const std::exception& error) {
                               give_up(error.what());
                           }
                       },
                       [this](LaneId, const std::string& why) { give_up(why); }});
    }

    /// @throws std::runtime_error
    void run() {
        lanes_.open();
        loop_.run();
        if (failure_) throw std::runtime_error(*failure_);
    }

private:
    void hear(LaneId lane, const Report& report) {
        if (const auto* failed = std::get_if<Failed>(&report)) return fail(lane, *failed);
        const bool ready = std::holds_alternative<Ready>(report);
        if (!ready && !plan_.take(lane, report)) return give_up("nobody asked for that");
        go_on(lane);
    }

    /// What this machine cannot read the preview tells; a run would go on without it, too.
    void fail(LaneId lane, const Failed& failed) {
        const bool go =
            plan_.is_busy(lane) && plan_.fail(lane, failed).kind == FailureStep::Kind::go_on;
        if (!go) return give_up(failed.text);
        go_on(lane);
    }

    void go_on(LaneId lane) {
        plan_.settle();
        if (plan_.is_over()) return loop_.stop();
        if (const auto order = plan_.next(lane)) lanes_.give(lane, *order);
    }

    /// The first reason counts: a process that has failed ends behind it.
    void give_up(const std::string& why) {
        if (!failure_) failure_ = why;
        loop_.stop();
    }

    EventLoop& loop_;
    RunPlan& plan_;
    LanePool& lanes_;
    std::optional<std::string> failure_;
};

}  // namespace

RunPreview preview_of(const std::string& task_id, const std::string& identity,
                      standalone::Database& config, standalone::Database& memory) {
    const TDataBackupConfig task = stored_task(task_id, config);
    RunGoal goal = preview_goal(task, config);
    goal.recorder = identity;
    const Destination& destination = goal.destination;
    EventLoop loop;
    const LoopClock clock(loop.get());
    UnwrittenDestinations places(memory, destination.key());
    CopyStore copies(memory, task_id);
    RunTally tally(clock);
    RunPlan plan(goal, places, copies, tally);
    WorkerLanes lanes(loop.get(), {.server = destination.server,
                                   .port = destination.port,
                                   .share = destination.share,
                                   .user = task.username,
                                   .password = task.password});
    Look(loop, plan, lanes).run();
    return plan.preview();
}

}  // namespace services
