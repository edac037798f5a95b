// What a task is to keep safe, as a text: what changes it, and what does not.
#include "platform/standalone/store/task_goal.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace {

using standalone::task_goal;
using Change = std::function<void(TDataBackupConfig&)>;

TDataBackupConfig nightly() {
    TDataBackupConfig task;
    task.port = 445;
    task.serverIP = "nas";
    task.destPath = "/backup/a";
    task.chIdxList = "1,3";
    task.backupType = BACKUP_BY_LAST_DAY;
    task.backupDays = 7;
    task.recordingType = REC_NORMAL;
    task.recordingFormat = FORMAT_MP4;
    return task;
}

bool changes_the_goal(TDataBackupConfig task, const Change& change) {
    const std::string before = task_goal(task);
    change(task);
    return task_goal(task) != before;
}

TEST(TaskGoal, IsAnotherOneWithEachMemberThatWhatLiesOnTheShareHangsOn) {
    const std::vector<Change> changes = {
        [](auto& task) { task.port = 446; },
        [](auto& task) { task.serverIP = "nas-b"; },
        [](auto& task) { task.destPath = "/backup/b"; },
        [](auto& task) { task.chIdxList = "1,3,4"; },
        [](auto& task) { task.backupDays = 8; },
        [](auto& task) { task.recordingType = REC_NORMAL_AND_ALARM; },
        [](auto& task) { task.recordingFormat = FORMAT_WITH_SIDE_FILE; },
        [](auto& task) { task.backupType = BACKUP_BY_TIME_RANGE; }};
    for (std::size_t number = 0; number < changes.size(); ++number)
        EXPECT_TRUE(changes_the_goal(nightly(), changes[number])) << number;
}

TEST(TaskGoal, IsTheSameWhateverElseOfTheTaskIsChanged) {
    EXPECT_FALSE(changes_the_goal(nightly(), [](auto& task) {
        task.taskName = "Yard";
        task.enable = true;
        task.username = "nvr";
        task.password = "secret";
        task.scheduleHour = 3;
        task.status = TASK_SUCCESS;
        task.endTime = "1000";
        task.backupStartDay = "2024-03-01";
    }));
}

TEST(TaskGoal, OfATimeRangeIsTheRange) {
    TDataBackupConfig task = nightly();
    task.backupType = BACKUP_BY_TIME_RANGE;
    EXPECT_FALSE(changes_the_goal(task, [](auto& changed) { changed.backupDays = 9; }));
    EXPECT_TRUE(
        changes_the_goal(task, [](auto& changed) { changed.backupStartDay = "2024-03-01"; }));
    EXPECT_TRUE(changes_the_goal(task, [](auto& changed) { changed.backupEndDay = "2024-03-01"; }));
}

TEST(TaskGoal, HangsOnRetentionAsFarAsThatKeepsDaysFromBeingCopied) {
    const auto keep = [](int days) {
        return [days](TDataBackupConfig& task) {
            task.remoteKeepRec = true;
            task.remoteKeepRecDays = days;
        };
    };
    EXPECT_FALSE(changes_the_goal(nightly(), keep(30)));
    EXPECT_TRUE(changes_the_goal(nightly(), keep(3)));
    TDataBackupConfig range = nightly();
    range.backupType = BACKUP_BY_TIME_RANGE;
    EXPECT_TRUE(changes_the_goal(range, keep(30)));
}

}  // namespace
