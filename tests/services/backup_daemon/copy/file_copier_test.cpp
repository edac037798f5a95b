// What a copier sends, in which order, and what it refuses to touch.
#include "services/backup_daemon/copy/file_copier.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "services/backup_daemon/copy/transfer.h"
#include "tests/services/backup_daemon/copy/copier_fixture.h"

using namespace services;

namespace {

using FileCopierTest = CopierFixture;

TEST_F(FileCopierTest, CopiesAndNamesTheFileWhenItIsWhole) {
    write_source(content);
    EXPECT_EQ(copy(), hash_of(content));
    expect_only(content);
    EXPECT_TRUE(server.folders.contains("a/b"));
    EXPECT_EQ(sent(), SIZE);
}

TEST_F(FileCopierTest, StepsComeInTheOrderThatLosesNothing) {
    write_source(content_of(CHUNK_SIZE + 1));
    job.side_file = SideFile{.channel = 3, .guid = "g-3", .start = 1};
    copy();
    const std::string part = job.temporary;
    const std::string description = part + ".json";
    const auto claimed = std::to_string(job.claim.size());
    const auto length = std::to_string(server.files.at(job.target + ".json").size());
    EXPECT_EQ(server.calls, (Texts{"look a/b/file.mp4",
                                   "make_folders a/b",
                                   "look " + part,
                                   "open write " + part,
                                   "write " + part + " 0 1048576",
                                   "read " + part + " 0 1048576",
                                   "write " + part + " 1048576 1",
                                   "read " + part + " 1048576 1",
                                   "read " + part + " 1048577 1",
                                   "read " + part + " 0 65536",
                                   "close " + part,
                                   "set_modified " + part,
                                   "look " + part,
                                   "create a/b/file.mp4",
                                   "write a/b/file.mp4 0 " + claimed,
                                   "close a/b/file.mp4",
                                   "rename " + part + " -> a/b/file.mp4",
                                   "open write " + description,
                                   "truncate " + description + " 0",
                                   "write " + description + " 0 " + length,
                                   "close " + description,
                                   "create a/b/file.mp4.json",
                                   "write a/b/file.mp4.json 0 " + claimed,
                                   "close a/b/file.mp4.json",
                                   "rename " + description + " -> a/b/file.mp4.json"}));
    EXPECT_EQ(told, (Texts{"at 0", "at 1048576", "at 1048577", "alive"}));
}

TEST_F(FileCopierTest, SizesAtTheBordersOfChunksAndCheckpoints) {
    for (const long long size : {0LL, 1LL, CHUNK_SIZE - 1, CHUNK_SIZE, CHUNK_SIZE + 1,
                                 CHECKPOINT_BYTES - 1, CHECKPOINT_BYTES, CHECKPOINT_BYTES + 1}) {
        server = {};
        told.clear();
        write_source(content_of(size));
        EXPECT_EQ(copy(), hash_of(content_of(size)));
        expect_only(content_of(size));
        EXPECT_EQ(sent(), size) << "a check that mends something would send it twice";
        EXPECT_EQ(told_of("checkpoint"), size < CHECKPOINT_BYTES ? 0 : 1) << size;
    }
}

TEST_F(FileCopierTest, FolderIsMadeOncePerFolderAndConnection) {
    write_source("content");
    FileCopier copier(share, watcher);
    copier.copy(job, opened());
    for (const char* name : {"a/b/second", "a/c/third", "a/b/fourth"}) {
        job.target = name;
        job.temporary = std::string(name) + ".part";
        copier.copy(job, opened());
    }
    EXPECT_EQ(server.calls_of("make_folders"),
              (Texts{"make_folders a/b", "make_folders a/c", "make_folders a/b"}));
}

TEST_F(FileCopierTest, FolderThatCouldNotBeMadeIsTriedAgain) {
    write_source("content");
    server.failure = PlannedFailure{.call = 1, .when = Break::before, .kind = FailureKind::denied};
    FileCopier copier(share, watcher);
    EXPECT_THROW(copier.copy(job, opened()), CopyFailure);
    copier.copy(job, opened());
    expect_only("content");
}

TEST_F(FileCopierTest, CopyThatStandsThereAlreadyIsKept) {
    write_source(content);
    server.put(job.target, content);
    EXPECT_EQ(copy(), hash_of(content));
    expect_only(content);
    EXPECT_EQ(server.written, 0);
    EXPECT_TRUE(server.calls_of("rename").empty());
}

TEST_F(FileCopierTest, CopyThatStandsThereWithoutItsDescriptionGetsOne) {
    write_source("hello");
    server.put(job.target, "hello");
    record();
    job.side_file = SideFile{.channel = 3, .guid = "g-3", .start = 1};
    copy();
    EXPECT_TRUE(server.files.contains(job.target + ".json"));
    EXPECT_EQ(server.calls_of("write").size(), 2U) << "the description's claim, and itself";
}

TEST_F(FileCopierTest, TruncatedCopyOnTheShareIsReplaced) {
    write_source(content);
    for (const bool recorded : {false, true}) {
        if (recorded) job.recorded = RecordedCopy{SIZE, 0, hash_of(content)};
        server = {};
        server.put(job.target, content_of(SIZE - 1));
        copy();
        expect_only(content);
    }
}

TEST_F(FileCopierTest, SomebodyElsesFileStays) {
    write_source(content);
    for (const std::string& other :
         {std::string("other"), content + "x", spoilt(content, SIZE - 1)}) {
        server = {};
        server.put(job.target, other);
        EXPECT_EQ(failure(), FailureKind::occupied);
        expect_only(other);
        EXPECT_EQ(server.written, 0);
    }
}

TEST_F(FileCopierTest, SourceThatBecomesShorterIsTold) {
    write_source(content);
    while_copying([this] { std::filesystem::resize_file(source_path, 100); });
    EXPECT_EQ(failure(), FailureKind::source);
    EXPECT_FALSE(server.files.contains(job.target));
}

TEST_F(FileCopierTest, SourceThatGrowsIsCopiedUpToTheSizeItHad) {
    write_source(content);
    while_copying([this] { std::ofstream(source_path, std::ios::app) << "more"; });
    EXPECT_EQ(copy(), hash_of(content));
    expect_only(content);
}

TEST_F(FileCopierTest, SourceThatIsDeletedMeanwhileIsCopiedAllTheSame) {
    write_source(content);
    while_copying([this] { std::filesystem::remove(source_path); });
    copy();
    expect_only(content);
}

TEST_F(FileCopierTest, WithoutCheckingReadNothingIsReadBackOrHashed) {
    write_source(content);
    job.check = false;
    EXPECT_EQ(copy(), "");
    expect_only(content);
    EXPECT_TRUE(server.calls_of("read").empty());
    EXPECT_EQ(told_of("checkpoint"), 2);
    EXPECT_EQ(job.prefix_sha256, "");
}

TEST_F(FileCopierTest, DescriptionHasTheHashEvenWithoutCheckingRead) {
    write_source("hello");
    job.side_file = SideFile{.channel = 3, .guid = "g-3", .start = 1'709'297'110};
    job.check = false;
    copy();
    EXPECT_EQ(server.files.at(job.target + ".json"),
              R"({"channel":3,"guid":"g-3","start":1709297110,"length":5,"sha256":")" +
                  hash_of("hello") + "\"}\n");
    EXPECT_EQ(server.files.size(), 2U);
}

TEST_F(FileCopierTest, NoDescriptionIsWrittenBesideAFileThatStays) {
    write_source("hello");
    server.put(job.target, "other");
    job.side_file = SideFile{.channel = 3, .guid = "g-3", .start = 1};
    EXPECT_EQ(failure(), FailureKind::occupied);
    expect_only("other");
}

}  // namespace
