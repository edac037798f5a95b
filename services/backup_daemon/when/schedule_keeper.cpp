// Starts tasks whose schedules come due, and remembers when they do next.
#include "services/backup_daemon/when/schedule_keeper.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/standalone/store/schedule.h"
#include "services/backup_daemon/when/by_task.h"

namespace services {
namespace {

using standalone::RunCause;

// A run that begins so many seconds late was missed: the daemon, or the machine, was not there.
constexpr long long PUNCTUAL = 60;

RunCause cause_of(long long seconds_late) {
    return seconds_late > PUNCTUAL ? RunCause::missed : RunCause::schedule;
}

}  // namespace

void ScheduleKeeper::look(long long now, const standalone::TimeZone& zone) {
    write_notes();
    const Seen seen{tasks_.version(), times_.version()};
    if (last_look_.holds(seen, now)) return;
    last_look_.note(seen, now, look_at_all(now, zone));
}

/// The places in the queue first: a daemon killed in between looks again and finds them there.
/// @return when the next task comes due
long long ScheduleKeeper::look_at_all(long long now, const standalone::TimeZone& zone) {
    const auto notes = notes_.all();
    std::vector<DueTask> due;
    ScheduleStore::Changes changes;
    long long until = NEVER;
    for (const TDataBackupConfig& task : tasks_.known()) {
        const auto remembered = of_task(notes, task.taskID);
        const auto [run, next] = standalone::look_at_schedule(task, remembered, now, zone);
        if (run) due.push_back({task.taskID, cause_of(now - remembered->due)});
        if (next != remembered) changes[task.taskID] = next;
        if (next) until = std::min(until, next->due);
    }
    if (!due.empty()) queue_.start_by_schedule(due);
    unwritten_ = std::move(changes);
    write_notes();
    return until;
}

void ScheduleKeeper::write_notes() {
    notes_.write(unwritten_);
    unwritten_.clear();
}

}  // namespace services
