// Tells when what is kept of tasks' schedules and successes may be otherwise.
#include "services/backup_daemon/memory/times_watch.h"

namespace services {

TimesWatch::TimesWatch(Memory& memory) : memory_(memory) {
    for (standalone::Database* connection : {&memory_.schedules, &memory_.runs})
        connection->count_rows_of({"next_run", "task_health"});
    schedules_ = seen_by(memory_.schedules);
    runs_ = seen_by(memory_.runs);
}

/// A stranger who writes after the first connection has told and before the second one has is seen
/// by that one now, and by the first one in the next call.
long long TimesWatch::version() {
    const Seen schedules = seen_by(memory_.schedules);
    const Seen runs = seen_by(memory_.runs);
    const bool runs_see_others = runs.others != runs_.others;
    const bool is_strange =
        schedules.others != schedules_.others && (runs_see_others || runs_saw_others_);
    if (is_strange || schedules.own != schedules_.own || runs.own != runs_.own) ++version_;
    schedules_ = schedules;
    runs_ = runs;
    runs_saw_others_ = runs_see_others;
    return version_;
}

TimesWatch::Seen TimesWatch::seen_by(standalone::Database& connection) {
    return {connection.version().others, connection.counted_rows()};
}

}  // namespace services
