// The folders below a channel's: one a day, and alarm/ in it.
#include "platform/standalone/store/day_folders.h"

#include <algorithm>

namespace standalone {

namespace {

bool is_day_folder(Folder& folder, const dirent& entry) {
    return is_day(entry.d_name) && has_kind(folder, entry, DT_DIR);
}

}  // namespace

DayNames day_names(Folder& folder) {
    DayNames days;
    const std::string last = today();
    while (const dirent* entry = next_entry(folder)) {
        if (!is_day_folder(folder, *entry)) continue;
        if (entry->d_name <= last)
            days.begun.emplace_back(entry->d_name);
        else if (days.next.empty() || entry->d_name < days.next)
            days.next = entry->d_name;
    }
    std::ranges::sort(days.begun);
    return days;
}

}  // namespace standalone
