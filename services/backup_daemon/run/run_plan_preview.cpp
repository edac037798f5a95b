// What a run's plan tells of a run that is not to happen yet.
#include <algorithm>
#include <set>

#include "services/backup_daemon/run/run_plan.h"

namespace services {

RunPreview RunPlan::preview() {
    RunPreview seen = weighed_;
    std::set<const SelectedChannel*> cameras;
    std::set<std::string> days;
    for (std::size_t number = 0; number < days_.size(); ++number) {
        const Day& day = days_[number];
        seen.to_compare.files += day.to_compare.files;
        seen.to_compare.bytes += day.to_compare.bytes;
        if (day.to_copy.files == 0) continue;
        seen.to_copy.files += day.to_copy.files;
        seen.to_copy.bytes += day.to_copy.bytes;
        cameras.insert(day.channel);
        days.insert(where(number).day);
    }
    seen.cameras = static_cast<long long>(cameras.size());
    seen.days = static_cast<long long>(days.size());
    if (!days.empty()) seen.first_day = *days.begin();
    if (!days.empty()) seen.last_day = *days.rbegin();
    seen.failure = failure();
    seen.why_copies_stay = why_copies_stay();
    if (!goal_.first_kept_day.empty() && seen.why_copies_stay.empty())
        seen.too_old = memory_.amount_older_than(
            goal_.first_kept_day, memory_.newest_days(goal_.first_kept_day), CopyMemory::ALL);
    return seen;
}

}  // namespace services
