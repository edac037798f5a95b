// Which days, kinds and channels a task selects, and which names its copies get.
#include "services/backup_daemon/run/selection.h"

#include <gtest/gtest.h>

#include "services/backup_daemon/copy/share_path.h"

using namespace services;

namespace {

constexpr DayNumber TODAY = 19783;  // 2024-03-01

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

TEST(Selection, ChannelsOfOneNameKeepTheirCopiesApart) {
    EXPECT_EQ(folders("1,2,3", {channel(1, "Door"), channel(2, "DOOR"), channel(3, "")}),
              (Names{"Door g1", "DOOR g2", "Channel 3"}));
}

TEST(RemoteName, SafeNamesStayAsTheyAre) {
    for (const char* name : {"Front door", "01-02-03.mp4", "Tür 3", ".hidden", "COM10", "console"})
        EXPECT_EQ(safe_name(name), name);
}

TEST(RemoteName, WhatSmbForbidsBecomesAnUnderscore) {
    EXPECT_EQ(safe_name("a\\b/c:d*e?f\"g<h>i|j"), "a_b_c_d_e_f_g_h_i_j");
    EXPECT_EQ(safe_name("tab\tnew\nline"), "tab_new_line");
    EXPECT_EQ(safe_name("dot."), "dot_");
    EXPECT_EQ(safe_name("blank "), "blank_");
    EXPECT_EQ(safe_name(".."), "._");
    EXPECT_EQ(safe_name(""), "_");
    EXPECT_EQ(safe_name("con"), "con_");
    EXPECT_EQ(safe_name("LPT1.txt"), "LPT1_.txt");
    EXPECT_EQ(safe_name("NUL .mp4"), "NUL _.mp4");
}

TEST(RemoteName, LongNamesAreCutBetweenCharacters) {
    std::string name;
    for (int count = 0; count < 300; ++count) name += "ü";
    EXPECT_EQ(safe_name(name).size(), 200U);
    EXPECT_EQ(safe_name("x" + name).size(), 199U);
}

TEST(RemoteName, DestinationIsReadInEverySpelling) {
    TDataBackupConfig task;
    task.serverIP = "10.0.0.9";
    task.port = 445;
    for (const char* path : {"/share/a/b", "share/a/b/", "\\share\\a\\b", "//share//a/b"}) {
        task.destPath = path;
        EXPECT_EQ(destination_of(task).key(), "//10.0.0.9:445/share/a/b");
        EXPECT_EQ(destination_of(task).folder, "a/b");
    }
    task.destPath = "/share";
    EXPECT_EQ(destination_of(task).folder, "");
    EXPECT_EQ(destination_of(task).share, "share");
    task.destPath = "/";
    EXPECT_EQ(destination_of(task).share, "");
    task.destPath = "/share/../../etc";
    EXPECT_EQ(destination_of(task).folder, "._/._/etc");
}

}  // namespace
