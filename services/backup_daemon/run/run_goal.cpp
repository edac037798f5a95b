// What a run is to reach, read once from the task and the channels before it begins.
#include "services/backup_daemon/run/run_goal.h"

namespace services {

RunGoal goal_of(const TDataBackupConfig& task, const std::vector<standalone::Channel>& channels,
                standalone::DayNumber today) {
    RunGoal goal;
    goal.task_id = task.taskID;
    goal.destination = destination_of(task);
    goal.selection = select_recordings(task, today);
    goal.channels = select_channels(task.chIdxList, channels, goal.missing_channels);
    goal.today = standalone::day_text(today);
    goal.first_kept_day = first_kept_day(task, today);
    goal.when_full =
        task.remoteOverwriteType == STOP_WHEN_FULL ? WhenFull::fail : WhenFull::remove_oldest;
    goal.side_files = task.recordingFormat == FORMAT_WITH_SIDE_FILE;
    return goal;
}

RunGoal clean_up_goal(const TDataBackupConfig& task) {
    RunGoal goal;
    goal.task_id = task.taskID;
    goal.destination = destination_of(task);
    goal.side_files = true;  // begun, perhaps, when the task had another format
    goal.purpose = RunPurpose::clean_up;
    return goal;
}

}  // namespace services
