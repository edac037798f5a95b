// Each camera's folder: its name if it can be, never another camera's, and the same for ever.
#include "services/backup_daemon/run/camera_folders.h"

#include <gtest/gtest.h>

#include "services/backup_daemon/copy/share_path.h"
#include "tests/services/backup_daemon/run/copy_ledger.h"

using namespace services;

namespace {

using Names = std::vector<std::string>;

class CameraFoldersTest : public testing::Test {
protected:
    /// Guid and name of each channel.
    Names folders(const std::vector<std::pair<std::string, std::string>>& cameras) {
        std::vector<SelectedChannel> channels;
        for (const auto& [guid, name] : cameras)
            channels.push_back(
                {.index = 0, .guid = guid, .recordings = "", .folder = safe_name(name)});
        give_folders(channels, told, places);
        Names names;
        for (const SelectedChannel& channel : channels) names.push_back(channel.folder);
        return names;
    }

    CameraFolders told;
    CopyLedger ledger;
    LedgerPlaces places{ledger};
};

TEST_F(CameraFoldersTest, CameraHasItsName) {
    EXPECT_EQ(folders({{"g1", "Front/door"}, {"g2", "Yard"}}), (Names{"Front_door", "Yard"}));
    EXPECT_EQ(ledger.folders, (CameraFolders{{"g1", "Front_door"}, {"g2", "Yard"}}));
}

TEST_F(CameraFoldersTest, RenamedCameraKeepsItsFolder) {
    folders({{"g1", "Door"}});
    EXPECT_EQ(folders({{"g1", "Gate"}}), Names{"Door"});
    EXPECT_EQ(folders({{"g2", "Gate"}}), Names{"Gate"});
}

TEST_F(CameraFoldersTest, SecondCameraOfANameLeavesTheFirstOneItsFolder) {
    EXPECT_EQ(folders({{"g1", "Door"}}), Names{"Door"});
    EXPECT_EQ(folders({{"g1", "Door"}, {"g2", "Door"}}), (Names{"Door", "Door g2"}));
    EXPECT_EQ(folders({{"g2", "Door"}, {"g1", "Door"}}), (Names{"Door g2", "Door"}));
}

TEST_F(CameraFoldersTest, NamesThatDifferInCaseAloneAreKeptApart) {
    EXPECT_EQ(folders({{"1", "\u00c4"},
                       {"2", "\u00e4"},
                       {"3", "\u03a3"},
                       {"4", "\u03c2"},
                       {"5", "\u03c3"},
                       {"6", "DOOR"},
                       {"7", "door"}}),
              (Names{"\u00c4", "\u00e4 2", "\u03a3", "\u03c2 4", "\u03c3 5", "DOOR", "door 7"}));
}

TEST_F(CameraFoldersTest, CameraNamedLikeAnotherOnesNameWithGuidIsKeptApart) {
    EXPECT_EQ(folders({{"g1", "Door"}, {"g3", "Door g2"}, {"g2", "Door"}, {"g4", "Door g2 2"}}),
              (Names{"Door", "Door g2", "Door g2 2", "Door g2 2 g4"}));
}

TEST_F(CameraFoldersTest, LongNamesAndGuidsFitAndAreKeptApart) {
    std::vector<std::pair<std::string, std::string>> cameras;
    const std::string guid(300, 'g');
    for (const std::size_t length : {168U, 199U, 200U, 201U, 300U})
        for (const char* last : {"1", "2", "3"})
            cameras.emplace_back(guid + std::to_string(length) + last, std::string(length, 'x'));
    for (int number = 0; number < 3; ++number) {
        std::string name;
        for (int count = 0; count < 150; ++count) name += "\u00fc";
        cameras.emplace_back(std::string(80, 'y') + std::to_string(number), name);
    }
    const Names names = folders(cameras);
    std::set<std::string> different;
    for (const std::string& name : names) {
        EXPECT_LE(name.size(), LONGEST_NAME);
        EXPECT_EQ(safe_name(name), name);
        different.insert(folded(name));
    }
    EXPECT_EQ(different.size(), cameras.size());
    EXPECT_EQ(folders(cameras), names);
}

TEST_F(CameraFoldersTest, NamesThatAreNotForCamerasAreChanged) {
    EXPECT_EQ(folders({{"g1", "Recorder 01234567"}, {"g2", ".recording-backup"}}),
              (Names{"_Recorder 01234567", "_.recording-backup"}));
    EXPECT_EQ(folders({{"g3", "Recorder"}, {"01234567", "recorder"}}),
              (Names{"Recorder", "recorder 01234567 2"}));
}

TEST_F(CameraFoldersTest, FolderWithCopiesThatIsNoKnownCamerasIsNobodys) {
    ledger.add("Door/2024-03-01/1.mp4", "2024-03-01");
    EXPECT_EQ(folders({{"g1", "door"}}), Names{"door g1"});
}

TEST_F(CameraFoldersTest, WhatIsToldBesideTheMarkerCountsUnlessAnotherCameraHasIt) {
    told = {{"g1", "Old door"}, {"g2", "Yard"}, {"g9", "Gone"}};
    ledger.folders = {{"g3", "YARD"}};
    EXPECT_EQ(folders({{"g1", "Door"}, {"g2", "Garden"}, {"g4", "gone"}}),
              (Names{"Old door", "Garden", "gone g4"}));
}

TEST_F(CameraFoldersTest, ToldIsWhatIsRecordedAndWhatWasToldOfOthers) {
    ledger.folders = {{"g1", "Door"}};
    EXPECT_EQ(folders_to_tell({{"g1", "Other"}, {"g2", "Yard"}}, places),
              (CameraFolders{{"g1", "Door"}, {"g2", "Yard"}}));
}

}  // namespace
