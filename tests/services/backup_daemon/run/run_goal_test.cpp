// What a run is to reach, as a task says it.
#include "services/backup_daemon/run/run_goal.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

constexpr standalone::DayNumber TODAY = 19783;  // 2024-03-01

TDataBackupConfig full_task() {
    TDataBackupConfig task;
    task.taskID = "42";
    task.serverIP = "10.0.0.9";
    task.port = 445;
    task.destPath = "/backup/a/b";
    task.chIdxList = "2,5,1";
    task.backupDays = 10;
    task.recordingType = 2;
    task.remoteKeepRec = true;
    task.remoteKeepRecDays = 7;
    return task;
}

standalone::Channel channel(int index, const std::string& name) {
    standalone::Channel made;
    made.index = index;
    made.name = name;
    made.guid = "g" + std::to_string(index);
    return made;
}

TEST(RunGoal, IsReadFromTheTaskAndTheChannels) {
    const RunGoal goal = goal_of(full_task(), {channel(1, "Door"), channel(2, "Yard")}, TODAY);
    EXPECT_EQ(goal.task_id, "42");
    EXPECT_EQ(goal.destination.key(), "//10.0.0.9:445/backup/a/b");
    EXPECT_EQ(goal.selection.first_day, "2024-02-23");
    EXPECT_TRUE(goal.selection.normal);
    EXPECT_TRUE(goal.selection.alarm);
    ASSERT_EQ(goal.channels.size(), 2U);
    EXPECT_EQ(goal.channels[0].folder, "Yard");
    EXPECT_EQ(goal.channels[1].folder, "Door");
    EXPECT_EQ(goal.missing_channels, std::vector<std::string>{"5"});
    EXPECT_EQ(goal.first_kept_day, "2024-02-23");
}

TEST(RunGoal, NothingIsTooOldWithoutRetention) {
    TDataBackupConfig task = full_task();
    task.remoteKeepRec = false;
    const RunGoal goal = goal_of(task, {}, TODAY);
    EXPECT_EQ(goal.first_kept_day, "");
    EXPECT_EQ(goal.selection.first_day, "2024-02-20");
}

TEST(RunGoal, FullShareMeansWhatTheTaskSays) {
    TDataBackupConfig task = full_task();
    task.remoteOverwriteType = table_index(strRemoteOverwrite_Arr, "stop_overwrite");
    EXPECT_EQ(goal_of(task, {}, TODAY).when_full, WhenFull::fail);
    task.remoteOverwriteType = table_index(strRemoteOverwrite_Arr, "overwrite");
    EXPECT_EQ(goal_of(task, {}, TODAY).when_full, WhenFull::remove_oldest);
}

TEST(RunGoal, OneFormatHasDescriptions) {
    TDataBackupConfig task = full_task();
    task.recordingFormat = table_index(strRecFormat_Arr, "mp4");
    EXPECT_FALSE(goal_of(task, {}, TODAY).side_files);
    task.recordingFormat = table_index(strRecFormat_Arr, "ostra");
    EXPECT_TRUE(goal_of(task, {}, TODAY).side_files);
}

TEST(RunGoal, FilesAreCheckedAndGoOneByOneUnlessTheCallerSaysOtherwise) {
    const RunGoal goal = goal_of(full_task(), {}, TODAY);
    EXPECT_TRUE(goal.check);
    EXPECT_EQ(goal.lanes, 1);
}

TEST(RunGoal, CleanUpKnowsTheDestinationAndNoRecordings) {
    const RunGoal goal = clean_up_goal(full_task());
    EXPECT_EQ(goal.purpose, RunPurpose::clean_up);
    EXPECT_TRUE(goal.makes_nothing());
    EXPECT_EQ(goal.task_id, "42");
    EXPECT_EQ(goal.destination.key(), "//10.0.0.9:445/backup/a/b");
    EXPECT_TRUE(goal.channels.empty() && goal.missing_channels.empty());
}

}  // namespace
