// Which recordings a task wants: days, kinds, channels.
#include "services/backup_daemon/run/selection.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "services/backup_daemon/copy/share_path.h"

namespace services {
namespace {

constexpr char LAST_OF_ALL_DAYS[] = "9999-12-31";

/// Live channels stand before removed ones of the same index.
const standalone::Channel* find_channel(const std::string& index,
                                        const std::vector<standalone::Channel>& channels) {
    const auto found = std::ranges::find_if(channels, [&](const standalone::Channel& channel) {
        return std::to_string(channel.index) == index;
    });
    return found == channels.end() ? nullptr : &*found;
}

}  // namespace

std::string wished_folder(const standalone::Channel& channel) {
    return safe_name(channel.name.empty() ? "Channel " + std::to_string(channel.index)
                                          : channel.name);
}

std::string first_kept_day(const TDataBackupConfig& task, standalone::DayNumber today) {
    if (!task.remoteKeepRec || task.remoteKeepRecDays < 0) return "";
    return standalone::day_text(today - task.remoteKeepRecDays);
}

Selection select_recordings(const TDataBackupConfig& task, standalone::DayNumber today) {
    Selection selection;
    selection.normal = task.recordingType != REC_ALARM;
    selection.alarm = task.recordingType != REC_NORMAL;
    selection.last_day = LAST_OF_ALL_DAYS;
    if (task.backupType == BACKUP_BY_LAST_DAY) {
        selection.first_day = standalone::day_text(today - std::max(task.backupDays, 0));
    } else {
        selection.first_day = task.backupStartDay;
        if (!task.backupEndDay.empty()) selection.last_day = task.backupEndDay;
    }
    selection.first_day = std::max(selection.first_day, first_kept_day(task, today));
    return selection;
}

std::vector<SelectedChannel> select_channels(const std::string& list,
                                             const std::vector<standalone::Channel>& channels,
                                             std::vector<std::string>& missing) {
    std::vector<SelectedChannel> selected;
    std::set<std::string> seen;
    std::istringstream indexes(list);
    for (std::string index; std::getline(indexes, index, ',');) {
        if (!seen.insert(index).second) continue;
        const standalone::Channel* channel = find_channel(index, channels);
        if (!channel) {
            missing.push_back(index);
            continue;
        }
        selected.push_back(
            {channel->index, channel->guid, channel->recordings, wished_folder(*channel)});
    }
    return selected;
}

}  // namespace services
