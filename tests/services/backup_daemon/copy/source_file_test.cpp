// The source is read as it was when it was opened, and is nothing but a regular file.
#include "services/backup_daemon/copy/source_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "services/backup_daemon/copy/copy_failure.h"
#include "tests/services/backup_daemon/copy/copy_fixture.h"

using namespace services;

namespace {

class SourceFileTest : public testing::Test {
protected:
    void write(const std::string& content) { std::ofstream(path, std::ios::binary) << content; }

    FailureKind failure_to_open() {
        return failure_of([this] { SourceFile{path}; });
    }

    TemporaryFolder folder;
    const std::string path = folder.path() + "/source";
};

std::string bytes_of(const SourceFile& file, long long offset, std::size_t size) {
    std::string bytes(size, '\0');
    file.read(offset, bytes.data(), size);
    return bytes;
}

TEST_F(SourceFileTest, TellsSizeAndLastWriteToTheNanosecond) {
    write("0123456789");
    const timespec times[2] = {{.tv_sec = 1, .tv_nsec = 2},
                               {.tv_sec = 1'709'297'110, .tv_nsec = 123'456'789}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    const SourceFile file(path);
    EXPECT_EQ(file.size(), 10);
    EXPECT_EQ(file.modified_ns(), 1'709'297'110'123'456'789);
}

TEST_F(SourceFileTest, ReadsExactlyWhatIsAskedFor) {
    write("0123456789");
    const SourceFile file(path);
    EXPECT_EQ(bytes_of(file, 0, 10), "0123456789");
    EXPECT_EQ(bytes_of(file, 3, 4), "3456");
    EXPECT_EQ(bytes_of(file, 10, 0), "");
}

TEST_F(SourceFileTest, WhatIsNotThereIsGone) {
    EXPECT_EQ(failure_to_open(), FailureKind::gone);
    write("a file in the place of the folder");
    EXPECT_EQ(failure_of([this] { SourceFile{path + "/recording"}; }), FailureKind::gone);
}

TEST_F(SourceFileTest, LinkIsNotFollowed) {
    std::ofstream(folder.path() + "/other") << "secret";
    std::filesystem::create_symlink(folder.path() + "/other", path);
    EXPECT_EQ(failure_to_open(), FailureKind::source);
}

TEST_F(SourceFileTest, FolderIsNoFile) {
    std::filesystem::create_directory(path);
    EXPECT_EQ(failure_to_open(), FailureKind::source);
}

TEST_F(SourceFileTest, IsClosedWhenAnotherProgramIsRun) {
    write("content");
    const SourceFile file(path);
    int found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) != path) continue;
        ++found;
        EXPECT_TRUE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC);
    }
    EXPECT_EQ(found, 1);
}

TEST_F(SourceFileTest, PipeIsNoFileAndNobodyWaitsForIt) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(failure_to_open(), FailureKind::source);
}

TEST_F(SourceFileTest, FileThatHasBecomeShorterIsToldByItsName) {
    write("0123456789");
    const SourceFile file(path);
    std::filesystem::resize_file(path, 9);
    EXPECT_EQ(bytes_of(file, 0, 9), "012345678");
    try {
        bytes_of(file, 0, 10);
        FAIL();
    } catch (const CopyFailure& failure) {
        EXPECT_EQ(failure.kind, FailureKind::source);
        EXPECT_EQ(failure.what(), path + " has become shorter");
    }
}

TEST_F(SourceFileTest, FileThatGrowsKeepsTheSizeThatItHad) {
    write("0123456789");
    const SourceFile file(path);
    std::ofstream(path, std::ios::app) << "more";
    EXPECT_EQ(file.size(), 10);
}

TEST_F(SourceFileTest, FileThatIsDeletedCanBeReadToItsEnd) {
    write("0123456789");
    const SourceFile file(path);
    std::filesystem::remove(path);
    EXPECT_EQ(bytes_of(file, 0, 10), "0123456789");
}

}  // namespace
