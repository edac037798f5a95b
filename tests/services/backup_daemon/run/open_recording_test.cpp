// A recording is opened below its channel's folder, or not at all.
#include "services/backup_daemon/run/open_recording.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/services/backup_daemon/copy/copy_fixture.h"

using namespace services;

namespace {

constexpr char RECORDING[] = "2024-03-01/alarm/01-00-00.mp4";

class OpenRecordingTest : public testing::Test {
protected:
    OpenRecordingTest() {
        std::filesystem::create_directories(day + "/alarm");
        write(path, "0123456789");
    }

    static void write(const std::string& file, const std::string& content) {
        std::ofstream(file, std::ios::binary) << content;
    }

    FailureKind failure_to_open(const std::string& recording = RECORDING) {
        return failure_of([&] { open_recording(folder.path(), recording); });
    }

    TemporaryFolder folder;
    TemporaryFolder elsewhere;
    const std::string day = folder.path() + "/2024-03-01";
    const std::string path = folder.path() + "/" + RECORDING;
};

std::string content_of(const OpenRecording& recording) {
    std::string bytes(100, '\0');
    const ssize_t got = read(recording.file.get(), bytes.data(), bytes.size());
    return bytes.substr(0, static_cast<std::size_t>(got));
}

TEST_F(OpenRecordingTest, TellsSizeAndLastWriteToTheNanosecond) {
    const timespec times[2] = {{.tv_sec = 1, .tv_nsec = 2},
                               {.tv_sec = 1'709'297'110, .tv_nsec = 123'456'789}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    const OpenRecording recording = open_recording(folder.path(), RECORDING);
    EXPECT_EQ(recording.size, 10);
    EXPECT_EQ(recording.modified_ns, 1'709'297'110'123'456'789);
    EXPECT_EQ(content_of(recording), "0123456789");
}

TEST_F(OpenRecordingTest, IsForReadingAndClosedWhenAnotherProgramIsRun) {
    const OpenRecording recording = open_recording(folder.path(), RECORDING);
    EXPECT_EQ(fcntl(recording.file.get(), F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_TRUE(fcntl(recording.file.get(), F_GETFD) & FD_CLOEXEC);
}

TEST_F(OpenRecordingTest, WhatIsNotThereIsGone) {
    EXPECT_EQ(failure_to_open("2024-03-01/02-00-00.mp4"), FailureKind::gone);
    EXPECT_EQ(failure_to_open("2024-03-02/01-00-00.mp4"), FailureKind::gone);
    EXPECT_EQ(failure_to_open(std::string(RECORDING) + "/is/a/file"), FailureKind::gone);
    EXPECT_EQ(failure_of([this] { open_recording(folder.path() + "/none", RECORDING); }),
              FailureKind::gone);
}

TEST_F(OpenRecordingTest, FailureNamesTheFile) {
    try {
        open_recording(folder.path(), "2024-03-01/02-00-00.mp4");
        FAIL();
    } catch (const CopyFailure& failure) {
        EXPECT_EQ(failure.what(),
                  folder.path() + "/2024-03-01/02-00-00.mp4: No such file or directory");
    }
}

TEST_F(OpenRecordingTest, LinkInThePlaceOfTheFileIsNotFollowed) {
    write(elsewhere.path() + "/secret", "secret");
    std::filesystem::remove(path);
    for (const std::string& target : {elsewhere.path() + "/secret", std::string("../beside")}) {
        write(day + "/beside", "even one of the same channel");
        std::filesystem::create_symlink(target, path);
        EXPECT_EQ(failure_to_open(), FailureKind::source);
        std::filesystem::remove(path);
    }
}

TEST_F(OpenRecordingTest, LinkInThePlaceOfAFolderIsNotFollowed) {
    std::filesystem::create_directories(elsewhere.path() + "/alarm");
    write(elsewhere.path() + "/alarm/01-00-00.mp4", "secret");
    std::filesystem::remove_all(day + "/alarm");
    std::filesystem::create_directory_symlink(elsewhere.path() + "/alarm", day + "/alarm");
    EXPECT_EQ(failure_to_open(), FailureKind::source);
    std::filesystem::remove_all(day);
    std::filesystem::create_directory_symlink(elsewhere.path(), day);
    EXPECT_EQ(failure_to_open(), FailureKind::source);
}

TEST_F(OpenRecordingTest, NameThatLeadsOutOfTheFolderIsNotOpened) {
    write(elsewhere.path() + "/secret", "secret");
    const std::string name = std::filesystem::path(elsewhere.path()).filename().string();
    EXPECT_EQ(failure_to_open("../" + name + "/secret"), FailureKind::source);
    EXPECT_EQ(failure_to_open("2024-03-01/../../" + name + "/secret"), FailureKind::source);
    EXPECT_EQ(failure_to_open(elsewhere.path() + "/secret"), FailureKind::source);
}

TEST_F(OpenRecordingTest, ChannelsFolderMayBeALinkOfTheAdministrators) {
    const std::string link = elsewhere.path() + "/channel";
    std::filesystem::create_directory_symlink(folder.path(), link);
    EXPECT_EQ(content_of(open_recording(link, RECORDING)), "0123456789");
}

TEST_F(OpenRecordingTest, FileThatTheFoldersOwnerMayNotReadIsNotReadForHim) {
    constexpr uid_t SOMEBODY = 65534;
    constexpr gid_t GROUP = 65533;
    if (chown((day + "/alarm").c_str(), SOMEBODY, GROUP) != 0)
        GTEST_SKIP() << "only root may do so";
    // As a second name of /etc/shadow is, also when that has been replaced meanwhile.
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    EXPECT_EQ(failure_to_open(), FailureKind::source);
    ASSERT_EQ(chown(path.c_str(), 0, GROUP), 0);
    EXPECT_EQ(content_of(open_recording(folder.path(), RECORDING)), "0123456789");
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    EXPECT_EQ(failure_to_open(), FailureKind::source);
    ASSERT_EQ(chown(path.c_str(), SOMEBODY, 0), 0);
    EXPECT_EQ(content_of(open_recording(folder.path(), RECORDING)), "0123456789");
    ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(path.c_str(), 0604), 0);
    EXPECT_EQ(content_of(open_recording(folder.path(), RECORDING)), "0123456789");
}

TEST_F(OpenRecordingTest, FolderOfRootsHoldsWhatItHolds) {
    constexpr uid_t SOMEBODY = 65534;
    if (geteuid() != 0) GTEST_SKIP() << "only root may give files away";
    ASSERT_EQ(chown(path.c_str(), SOMEBODY, SOMEBODY), 0);
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    EXPECT_EQ(content_of(open_recording(folder.path(), RECORDING)), "0123456789");
}

TEST_F(OpenRecordingTest, FolderIsNoFile) {
    EXPECT_EQ(failure_to_open("2024-03-01/alarm"), FailureKind::source);
}

TEST_F(OpenRecordingTest, PipeIsNoFileAndNobodyWaitsForIt) {
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(failure_to_open(), FailureKind::source);
}

}  // namespace
