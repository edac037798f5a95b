// Looks at what a task's run would do, over one connection, and does nothing of it.
#include "services/backup_daemon/run/preview.h"

#include <ctime>
#include <stdexcept>

#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/copy_store.h"
#include "services/backup_daemon/memory/destination_store.h"
#include "services/backup_daemon/run/plan_look.h"
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
    const standalone::DayNumber today =
        standalone::local_day(std::time(nullptr), standalone::machine_zone);
    RunGoal goal = goal_of(task, standalone::ChannelStore(config).list(), today);
    if (goal.destination.server.empty() || goal.destination.share.empty())
        throw std::runtime_error("the task names no server and share");
    goal.purpose = RunPurpose::preview;
    return goal;
}

}  // namespace

RunPreview preview_of(const std::string& task_id, const std::string& identity,
                      standalone::Database& config, standalone::Database& memory) {
    const TDataBackupConfig task = stored_task(task_id, config);
    RunGoal goal = preview_goal(task, config);
    goal.recorder = identity;
    const Destination& destination = goal.destination;
    EventLoop loop;
    LoopClock clock(loop.get());
    UnwrittenDestinations places(memory, destination.key());
    CopyStore copies(memory, task_id);
    RunTally tally(clock);
    RunPlan plan(goal, places, copies, tally);
    WorkerLanes lanes(loop.get(), {.server = destination.server,
                                   .port = destination.port,
                                   .share = destination.share,
                                   .user = task.username,
                                   .password = task.password});
    PlanLook look(clock, plan, lanes, [&loop] { loop.stop(); });
    look.begin();
    loop.run();
    if (look.failure()) throw std::runtime_error(*look.failure());
    return plan.preview();
}

}  // namespace services
