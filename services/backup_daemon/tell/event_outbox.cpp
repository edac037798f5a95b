// Events of runs on their way into the log: what it refuses is kept and written later, in order.
#include "services/backup_daemon/tell/event_outbox.h"

namespace services {

void EventOutbox::write(RunEvent event, const std::string& task_name, const std::string& detail) {
    write_kept();
    if (kept_.empty() && try_run_event(event, task_name, detail)) return;
    const bool is_kept = kept_.size() < MOST_KEPT;
    print_run_event(event, task_name, detail, is_kept ? "waits for the log" : "is lost");
    if (is_kept) kept_.push_back({event, task_name, detail});
}

void EventOutbox::write_kept() {
    for (int count = 0; count < MOST_AT_ONCE && !kept_.empty(); ++count) {
        const Kept& first = kept_.front();
        if (!try_run_event(first.event, first.task_name, first.detail)) return;
        kept_.pop_front();
    }
}

}  // namespace services
