// Starts tasks whose schedules come due, and remembers when they do next.
#include "services/backup_daemon/when/schedule_keeper.h"

#include "platform/standalone/store/schedule.h"

namespace services {
namespace {

using standalone::RunCause;

// A run that begins so many seconds late was missed: the daemon, or the machine, was not there.
constexpr long long PUNCTUAL = 60;

}  // namespace

void ScheduleKeeper::look(long long now, const standalone::TimeZone& zone) {
    write_notes();
    for (const TDataBackupConfig& task : tasks_.list()) look(task, now, zone);
}

void ScheduleKeeper::look(const TDataBackupConfig& task, long long now,
                          const standalone::TimeZone& zone) {
    const auto remembered = notes_.find(task.taskID);
    const standalone::ScheduleStep step = standalone::look_at_schedule(task, remembered, now, zone);
    // The place in the queue first: a daemon killed in between looks again and finds it there.
    if (step.run) {
        const bool missed = now - remembered->due > PUNCTUAL;
        queue_.start_by_schedule(task.taskID, missed ? RunCause::missed : RunCause::schedule);
    }
    if (!step.next && remembered) notes_.clear(task.taskID);
    const bool changed = step.next && (!remembered || step.next->rule != remembered->rule ||
                                       step.next->due != remembered->due);
    if (!changed) return;
    unwritten_[task.taskID] = *step.next;
    write_notes();
}

void ScheduleKeeper::write_notes() {
    while (!unwritten_.empty()) {
        const auto first = unwritten_.begin();
        notes_.set(first->first, first->second);
        unwritten_.erase(first);
    }
}

}  // namespace services
