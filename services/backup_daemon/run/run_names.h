// The names that a run's files have, here and on the share.
#pragma once

#include <string>

#include "services/backup_daemon/run/lane_messages.h"
#include "services/backup_daemon/run/selection.h"

namespace services {

/// A day's recordings of one channel.
struct ChannelDay {
    const SelectedChannel* channel = nullptr;  ///< never null in use; the run's goal owns it
    std::string day;                           ///< "2024-03-01"
};

/// A recording's file, below its channel's folder.
std::string source_path(const ChannelDay& where, const DayEntry& entry);

/// Names on the share. A path is below the destination's folder, as the copies' memory keeps it;
/// on_share() makes it one that a lane can use.
class ShareNames {
public:
    /// @param folder   the destination's, below the share; may be ""
    /// @param recorder this recorder's identity
    ShareNames(std::string folder, const std::string& recorder, const std::string& task_id)
        : folder_(std::move(folder)),
          recorder_(recorder),
          writer_(short_identity(recorder) + "-" + task_id) {}

    /// The folder of a day's copies.
    static std::string day_folder(const ChannelDay& where);

    /// Where a recording's copy stands.
    static std::string copy_path(const ChannelDay& where, const DayEntry& entry);

    /// Where it grows: beside the copy, recognisable as unfinished, and no other recorder's or
    /// task's.
    std::string temporary_path(const std::string& copy) const;

    /// What stands in a file that only holds a name for a copy of this recorder's, of any task:
    /// what its tasks copy to one name is one recording.
    std::string claim() const;

    std::string on_share(const std::string& path) const;

private:
    std::string folder_;
    std::string recorder_;
    std::string writer_;
};

}  // namespace services
