// Which days, kinds and channels a task selects, and which names its copies get.
#include "services/backup_daemon/run/selection.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

constexpr standalone::DayNumber TODAY = 19783;  // 2024-03-01

standalone::Channel channel(int index, const std::string& name, bool removed = false) {
    standalone::Channel made;
    made.index = index;
    made.name = name;
    made.guid = "g" + std::to_string(index) + (removed ? "r" : "");
    made.removed = removed;
    return made;
}

std::vector<std::string> folders(const std::string& list,
                                 const std::vector<standalone::Channel>& channels) {
    std::vector<std::string> missing;
    std::vector<std::string> names;
    for (const SelectedChannel& selected : select_channels(list, channels, missing))
        names.push_back(selected.folder);
    for (const std::string& index : missing) names.push_back("missing " + index);
    return names;
}

using Names = std::vector<std::string>;

TEST(Selection, LastDaysCountFromToday) {
    TDataBackupConfig task;
    EXPECT_EQ(select_recordings(task, TODAY).first_day, "2024-03-01");
    task.backupDays = 1;
    EXPECT_EQ(select_recordings(task, TODAY).first_day, "2024-02-29");
    task.backupDays = -5;
    EXPECT_EQ(select_recordings(task, TODAY).first_day, "2024-03-01");
}

TEST(Selection, RangeMayBeOpenAtEitherEnd) {
    TDataBackupConfig task;
    task.backupType = 1;
    task.backupStartDay = "2024-01-05";
    EXPECT_EQ(select_recordings(task, TODAY).first_day, "2024-01-05");
    EXPECT_GT(select_recordings(task, TODAY).last_day, "2999-01-01");
    task.backupEndDay = "2024-01-07";
    task.backupStartDay = "";
    EXPECT_EQ(select_recordings(task, TODAY).first_day, "");
    EXPECT_EQ(select_recordings(task, TODAY).last_day, "2024-01-07");
}

TEST(Selection, WhatRetentionWouldRemoveIsNotCopied) {
    TDataBackupConfig task;
    task.backupDays = 30;
    task.remoteKeepRec = true;
    task.remoteKeepRecDays = 2;
    EXPECT_EQ(select_recordings(task, TODAY).first_day, "2024-02-28");
    EXPECT_EQ(first_kept_day(task, TODAY), "2024-02-28");
    task.remoteKeepRec = false;
    EXPECT_EQ(select_recordings(task, TODAY).first_day, "2024-01-31");
    EXPECT_EQ(first_kept_day(task, TODAY), "");
}

TEST(Selection, RangeBeginsWithTheFirstDayThatIsKept) {
    TDataBackupConfig task;
    task.backupType = 1;
    task.backupStartDay = "2024-01-05";
    task.backupEndDay = "2024-02-10";
    task.remoteKeepRec = true;
    task.remoteKeepRecDays = 30;
    EXPECT_EQ(select_recordings(task, TODAY).first_day, "2024-01-31");
    EXPECT_EQ(select_recordings(task, TODAY).last_day, "2024-02-10");
    task.backupStartDay = "2024-02-09";
    EXPECT_EQ(select_recordings(task, TODAY).first_day, "2024-02-09");
}

TEST(Selection, LastDaysHaveNoLastDayOfTheirOwn) {
    TDataBackupConfig task;
    task.backupDays = 3;
    task.backupEndDay = "2024-02-01";
    task.backupStartDay = "2024-01-01";
    EXPECT_EQ(select_recordings(task, TODAY).first_day, "2024-02-27");
    EXPECT_GT(select_recordings(task, TODAY).last_day, "2999-01-01");
}

TEST(Selection, RetentionOfNoDaysKeepsToday) {
    TDataBackupConfig task;
    task.remoteKeepRec = true;
    EXPECT_EQ(first_kept_day(task, TODAY), "2024-03-01");
    task.remoteKeepRecDays = -1;
    EXPECT_EQ(first_kept_day(task, TODAY), "");
}

TEST(Selection, KindsOfRecordings) {
    TDataBackupConfig task;
    const std::pair<bool, bool> wanted[] = {{true, false}, {false, true}, {true, true}};
    for (int type = 0; type < 3; ++type) {
        task.recordingType = type;
        const Selection selection = select_recordings(task, TODAY);
        EXPECT_EQ(std::pair(selection.normal, selection.alarm), wanted[type]);
    }
}

TEST(Selection, ChannelsEachOnceAndMissingOnesAreTold) {
    const std::vector<standalone::Channel> channels{channel(1, "Yard"), channel(2, "Door")};
    EXPECT_EQ(folders("2,1,2,7", channels), (Names{"Door", "Yard", "missing 7"}));
    EXPECT_EQ(folders("", channels), Names{});
}

TEST(Selection, RemovedChannelCountsWhenNoLiveOneHasItsIndex) {
    EXPECT_EQ(folders("1", {channel(1, "New"), channel(1, "Old", true)}), Names{"New"});
    EXPECT_EQ(folders("1", {channel(1, "Old", true)}), Names{"Old"});
}

TEST(Selection, ChannelWishesForItsNameWhoeverElseHasIt) {
    EXPECT_EQ(folders("1,2,3", {channel(1, "Door"), channel(2, "DOOR"), channel(3, "")}),
              (Names{"Door", "DOOR", "Channel 3"}));
}

TEST(Selection, OnlyNumbersAsTheyArePrintedAreChannels) {
    const std::vector<standalone::Channel> channels{channel(0, "Gate"), channel(1, "Yard"),
                                                    channel(12, "Door")};
    EXPECT_EQ(folders("12,0", channels), (Names{"Door", "Gate"}));
    EXPECT_EQ(folders(" 1,1 ,01,+1", channels),
              (Names{"missing  1", "missing 1 ", "missing 01", "missing +1"}));
    EXPECT_EQ(folders("1,,x,,-1", channels),
              (Names{"Yard", "missing ", "missing x", "missing -1"}));
    EXPECT_EQ(folders("1,", channels), Names{"Yard"});
    EXPECT_EQ(folders("7,7", channels), Names{"missing 7"});
}

TEST(Selection, ChannelComesWithItsFacts) {
    standalone::Channel door = channel(3, "Front/Door");
    door.recordings = "/rec/door";
    std::vector<std::string> missing;
    const auto selected = select_channels("3", {door}, missing);
    ASSERT_EQ(selected.size(), 1U);
    EXPECT_EQ(selected[0].index, 3);
    EXPECT_EQ(selected[0].guid, "g3");
    EXPECT_EQ(selected[0].recordings, "/rec/door");
    EXPECT_EQ(selected[0].folder, "Front_Door");
    EXPECT_TRUE(missing.empty());
}

TEST(Selection, LongChannelNameIsCut) {
    EXPECT_EQ(folders("1", {channel(1, std::string(300, 'x'))}), Names{std::string(200, 'x')});
}

}  // namespace
