// Markers and lists of cameras: what is written is read again, and nothing else is believed.
#include "services/backup_daemon/copy/marker.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

const std::string RECORDER = "0123456789abcdef0123456789abcdef";
const std::string PLACE = "fedcba9876543210fedcba9876543210";

TEST(Marker, IsReadAsItWasWritten) {
    const std::string text = marker_text({RECORDER, PLACE});
    EXPECT_EQ(text, "{\"recorder\":\"" + RECORDER + "\",\"destination\":\"" + PLACE + "\"}\n");
    const auto marker = read_marker(text);
    ASSERT_TRUE(marker);
    EXPECT_EQ(marker->recorder, RECORDER);
    EXPECT_EQ(marker->destination, PLACE);
}

TEST(Marker, OfALaterVersionMaySayMore) {
    EXPECT_TRUE(read_marker("{\"since\":[1],\"recorder\":\"" + RECORDER + "\",\"destination\":\"" +
                            PLACE + "\"}"));
}

TEST(Marker, WhatIsNoneIsNotTakenForOne) {
    const std::string recorder = "\"recorder\":\"" + RECORDER + "\"";
    const std::string place = "\"destination\":\"" + PLACE + "\"";
    const std::string good = "{" + recorder + "," + place + "}";
    for (const std::string& text :
         {std::string(), std::string("{}"), std::string("null"), std::string(40, '\0'),
          good.substr(0, good.size() - 1), good + good, "{" + recorder + "}", "{" + place + "}",
          "{" + recorder + "," + recorder + "," + place + "}", "[" + good + "]",
          "{\"recorder\":5," + place + "}", "{\"recorder\":\"" + RECORDER + "0\"," + place + "}",
          "{\"recorder\":\"../../../../../../../../../../etc\"," + place + "}",
          "{\"recorder\":\"0123456789ABCDEF0123456789ABCDEF\"," + place + "}"})
        EXPECT_FALSE(read_marker(text)) << text;
}

TEST(Marker, StandsInAFolderOfTheFolderThatItMarks) {
    EXPECT_EQ(marker_path("a/b"), "a/b/.recording-backup/recorder.json");
    EXPECT_EQ(marker_path(""), ".recording-backup/recorder.json");
    EXPECT_EQ(cameras_path("a"), "a/.recording-backup/cameras.json");
    EXPECT_EQ(own_folder(RECORDER), "Recorder 01234567");
}

TEST(Marker, NoCameraHasItsNameOrThatOfARecordersOwnFolder) {
    for (const char* name : {".recording-backup", ".Recording-Backup", ".recording-backup.01-3",
                             "Recorder 01234567", "RECORDER ABCDEF01"})
        EXPECT_TRUE(is_reserved(name)) << name;
    for (const char* name : {"Recorder", "Recorder 0123456", "Recorder 012345678",
                             "Recorder 0123456x", "recording-backup", "Front door"})
        EXPECT_FALSE(is_reserved(name)) << name;
}

TEST(Cameras, AreReadAsTheyWereWritten) {
    const CameraFolders cameras{{"g1", "Front \"door\""}, {"g2", "T\u00fcr"}};
    const CameraFolders safe{{"g1", "Front _door_"}, {"g2", "T\u00fcr"}};
    EXPECT_EQ(read_cameras(cameras_text(safe, 1000)), safe);
    EXPECT_EQ(read_cameras(cameras_text(cameras, 1000)), (CameraFolders{{"g2", "T\u00fcr"}}));
    EXPECT_EQ(read_cameras(cameras_text({}, 1000)), CameraFolders());
}

TEST(Cameras, ThatHaveNoRoomAreLeftOutAndTheRestIsWhole) {
    CameraFolders cameras;
    for (int number = 100; number < 200; ++number)
        cameras["guid-" + std::to_string(number)] = "Camera " + std::to_string(number);
    for (const std::size_t most : {100U, 1000U, 2000U}) {
        const std::string text = cameras_text(cameras, most);
        EXPECT_LE(text.size(), most);
        const CameraFolders read = read_cameras(text);
        EXPECT_GE(read.size(), (most - 60) / 50);
        EXPECT_EQ(cameras_text(read, most), text);
    }
}

TEST(Cameras, WithFoldersThatNoCameraMayHaveArePassedOver) {
    const auto listed = [](const std::string& folder) {
        return read_cameras("{\"cameras\":[{\"guid\":\"g\",\"folder\":\"" + folder + "\"}]}");
    };
    EXPECT_EQ(listed("Door"), (CameraFolders{{"g", "Door"}}));
    for (const std::string& folder :
         {std::string(), std::string(".."), std::string("a/b"), std::string("a\\\\b"),
          std::string("CON"), std::string("a\\u0000b"), std::string(201, 'x'),
          std::string(".recording-backup"), std::string("Recorder 01234567")})
        EXPECT_EQ(listed(folder), CameraFolders()) << folder;
    for (const char* text : {"", "[]", "{}", "{\"cameras\":5}", "{\"cameras\":[5,[],{},null]}",
                             "{\"cameras\":{\"guid\":\"g\",\"folder\":\"Door\"}}",
                             "{\"cameras\":[{\"guid\":\"g\",\"folder\":5}]}"})
        EXPECT_EQ(read_cameras(text), CameraFolders()) << text;
}

}  // namespace
