// Which recordings a task wants: days, kinds, channels.
#pragma once

#include <string>
#include <vector>

#include "backup/task_record.h"
#include "platform/standalone/store/calendar.h"
#include "platform/standalone/store/channel_store.h"

namespace services {

/// What a run looks for.
struct Selection {
    std::string first_day;  ///< "2024-03-01"; "" for no limit
    std::string last_day;
    bool normal = false;
    bool alarm = false;
};

/// Reads a task on the local day `today`. Days that the task's own retention would remove at once
/// are not selected.
Selection select_recordings(const TDataBackupConfig& task, standalone::DayNumber today);

/// The first day that retention keeps; "" when the task has none.
std::string first_kept_day(const TDataBackupConfig& task, standalone::DayNumber today);

/// A channel with the folder that its copies get.
struct SelectedChannel {
    int index = 0;
    std::string guid;
    std::string recordings;  ///< local folder
    /// Name on the share, no other camera's; a wish until the run knows where its copies go.
    std::string folder;
};

/// The folder that a channel's copies get if no other camera has it: the channel's name, as far as
/// servers take it.
std::string wished_folder(const standalone::Channel& channel);

/// The channels of a list "1,3,4", each once. A removed channel counts when no live one has the
/// index.
/// @param missing receives the indexes that no channel has
std::vector<SelectedChannel> select_channels(const std::string& list,
                                             const std::vector<standalone::Channel>& channels,
                                             std::vector<std::string>& missing);

}  // namespace services
