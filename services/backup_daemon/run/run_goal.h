// What a run is to reach, read once from the task and the channels before it begins.
#pragma once

#include <string>
#include <vector>

#include "backup/task_record.h"
#include "platform/standalone/store/channel_store.h"
#include "services/backup_daemon/run/destination.h"
#include "services/backup_daemon/run/selection.h"

namespace services {

/// What a full share means for a run.
enum class WhenFull { fail, remove_oldest };

/// What a run is for.
enum class RunPurpose {
    copy,
    preview,   ///< to see what there is to do, and to do nothing
    clean_up,  ///< the task is deleted: only its unfinished files go
};

struct RunGoal {
    std::string task_id;
    std::string recorder;  ///< this recorder's identity
    Destination destination;
    Selection selection;
    std::vector<SelectedChannel> channels;
    std::vector<std::string> missing_channels;  ///< indexes that no channel has
    std::string today;                          ///< "2024-03-01"
    std::string first_kept_day;                 ///< retention removes what is older; "": nothing
    WhenFull when_full = WhenFull::fail;
    bool side_files = false;  ///< a description goes beside every copy
    bool check = true;        ///< every file is read back before it gets its name
    int lanes = 1;            ///< files on their way at one time, at most
    int lanes_far = 1;        ///< the same for small files over a long line
    RunPurpose purpose = RunPurpose::copy;

    bool is_preview() const { return purpose == RunPurpose::preview; }

    /// Nothing is made on the share.
    bool makes_nothing() const { return purpose != RunPurpose::copy; }
};

/// Reads a task on the local day `today`. `recorder`, `check`, `lanes` and `lanes_far` are the
/// caller's to fill in.
RunGoal goal_of(const TDataBackupConfig& task, const std::vector<standalone::Channel>& channels,
                standalone::DayNumber today);

/// Reads what is to be known of a deleted task, to remove its unfinished files. `recorder` is the
/// caller's to fill in.
RunGoal clean_up_goal(const TDataBackupConfig& task);

}  // namespace services
