// What a copier sends, keeps, compares and refuses, for every state it may find on the share.
#include "services/backup_daemon/copy/file_copier.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "services/backup_daemon/copy/transfer.h"
#include "tests/services/backup_daemon/copy/copy_fixture.h"

using namespace services;

namespace {

class FileCopierTest : public CopyFixture {
protected:
    /// Copies over a new connection, as a new process does. Keeps checkpoints as the daemon does.
    CopyResult copy() {
        MemoryShare connection(server);
        FileCopier copier(connection, {.at = watcher.at,
                                       .checkpoint =
                                           [this](long long offset, const std::string& sha256) {
                                               watcher.checkpoint(offset, sha256);
                                               job.offset = offset;
                                               job.prefix_sha256 = sha256;
                                           },
                                       .alive = watcher.alive});
        return copier.copy(job);
    }

    FailureKind failure() {
        return failure_of([this] { copy(); });
    }

    /// Copies until the connection breaks in the write at `offset`.
    void cut_at(long long offset) {
        const std::string call = "write " + job.temporary + " " + std::to_string(offset) + " ";
        server.before_call = [call](const std::string& text) {
            if (text.starts_with(call)) throw CopyFailure(FailureKind::lost, "cut");
        };
        EXPECT_EQ(failure(), FailureKind::lost);
        server.before_call = [](const std::string&) {};
    }

    /// Does something to the source when the first chunk is on its way.
    void while_copying(const std::function<void()>& change) {
        server.before_call = [this, change](const std::string& text) {
            if (text.starts_with("write " + job.temporary + " 0 ")) change();
        };
    }

    /// The target is the only file, and it is this.
    void expect_only(const std::string& content) const {
        ASSERT_TRUE(server.files.contains(job.target));
        EXPECT_TRUE(server.files.at(job.target) == content);
        EXPECT_EQ(server.files.size(), 1U);
    }

    static constexpr long long SIZE = 20 * MIB + 17;
    const std::string content = content_of(SIZE);
};

TEST_F(FileCopierTest, CopiesAndNamesTheFileWhenItIsWhole) {
    write_source(content);
    const CopyResult result = copy();
    expect_only(content);
    EXPECT_TRUE(server.folders.contains("a/b"));
    EXPECT_EQ(result.size, SIZE);
    EXPECT_EQ(result.modified_ns, SourceFile(job.source).modified_ns());
    EXPECT_EQ(result.sha256, hash_of(content));
    EXPECT_EQ(server.written, result.size);
}

TEST_F(FileCopierTest, StepsComeInTheOrderThatLosesNothing) {
    write_source(content_of(CHUNK_SIZE + 1));
    job.side_file = SideFile{.channel = 3, .guid = "g-3", .start = 1};
    copy();
    const std::string part = job.temporary;
    const std::string description = part + ".json";
    const auto length = std::to_string(server.files.at(job.target + ".json").size());
    EXPECT_EQ(server.calls,
              (Texts{"size a/b/file.mp4", "make_folders a/b", "size " + part, "open write " + part,
                     "write " + part + " 0 1048576", "write " + part + " 1048576 1",
                     "close " + part, "open read " + part, "read " + part + " 0 1048576",
                     "read " + part + " 1048576 1048576", "rename " + part + " -> a/b/file.mp4",
                     "open write " + description, "truncate " + description + " 0",
                     "write " + description + " 0 " + length, "close " + description,
                     "rename " + description + " -> a/b/file.mp4.json"}));
    EXPECT_EQ(told, (Texts{"at 0", "at 1048576", "at 1048577", "alive", "alive"}));
}

TEST_F(FileCopierTest, SizesAtTheBordersOfChunksAndCheckpoints) {
    for (const long long size : {0LL, 1LL, CHUNK_SIZE - 1, CHUNK_SIZE, CHUNK_SIZE + 1,
                                 CHECKPOINT_BYTES - 1, CHECKPOINT_BYTES, CHECKPOINT_BYTES + 1}) {
        server = {};
        told.clear();
        write_source(content_of(size));
        const CopyResult result = copy();
        expect_only(content_of(size));
        EXPECT_EQ(result.size, size);
        EXPECT_EQ(result.sha256, hash_of(content_of(size)));
        EXPECT_EQ(server.written, size) << "a check that mends something would send it twice";
        EXPECT_EQ(told_of("checkpoint"), size < CHECKPOINT_BYTES ? 0 : 1) << size;
    }
}

TEST_F(FileCopierTest, FolderIsMadeOncePerFolderAndConnection) {
    write_source("content");
    FileCopier copier(share, watcher);
    copier.copy(job);
    for (const char* name : {"a/b/second", "a/c/third", "a/b/fourth"}) {
        job.target = name;
        job.temporary = std::string(name) + ".part";
        copier.copy(job);
    }
    EXPECT_EQ(server.calls_of("make_folders"),
              (Texts{"make_folders a/b", "make_folders a/c", "make_folders a/b"}));
}

TEST_F(FileCopierTest, FolderThatCouldNotBeMadeIsTriedAgain) {
    write_source("content");
    server.failure = PlannedFailure{.call = 1, .when = Break::before, .kind = FailureKind::denied};
    FileCopier copier(share, watcher);
    EXPECT_THROW(copier.copy(job), CopyFailure);
    copier.copy(job);
    expect_only("content");
}

TEST_F(FileCopierTest, NothingHasTheNameWhileItIsUnfinished) {
    write_source(content);
    cut_at(10 * MIB);
    EXPECT_FALSE(server.files.contains(job.target));
    EXPECT_TRUE(server.files.contains(job.temporary));
}

TEST_F(FileCopierTest, GoesOnWhereItWasCutAndSendsNothingTwice) {
    write_source(content);
    cut_at(15 * MIB);
    EXPECT_EQ(job.offset, 8 * MIB);
    EXPECT_EQ(job.prefix_sha256, hash_of(content_of(8 * MIB)));
    told.clear();
    copy();
    EXPECT_EQ(told.at(8 + 7), "at " + std::to_string(15 * MIB)) << "behind what was looked at";
    expect_only(content);
    EXPECT_EQ(server.written, SIZE);
}

TEST_F(FileCopierTest, GoesOnWithoutAnyCheckpoint) {
    write_source(content);
    cut_at(15 * MIB);
    job.offset = 0;
    job.prefix_sha256.clear();
    copy();
    expect_only(content);
    EXPECT_EQ(server.written, SIZE);
}

TEST_F(FileCopierTest, SourceThatChangedBelowTheCheckpointIsSentAnewAtOnce) {
    write_source(content);
    cut_at(15 * MIB);
    write_source(spoilt(content, 5));
    copy();
    expect_only(spoilt(content, 5));
    EXPECT_TRUE(server.calls_of("remove").empty()) << "it was not left to the check to find";
    EXPECT_EQ(server.written, SIZE + 15 * MIB);
}

TEST_F(FileCopierTest, DamageBehindTheCheckpointIsSentAnewAtOnce) {
    write_source(content);
    cut_at(15 * MIB);
    server.files[job.temporary][static_cast<std::size_t>(12 * MIB)] ^= 1;
    copy();
    expect_only(content);
    EXPECT_TRUE(server.calls_of("remove").empty());
    EXPECT_EQ(server.written, SIZE + 3 * MIB);
}

TEST_F(FileCopierTest, DamageBelowTheCheckpointIsFoundByTheCheckAndAllIsSentAnew) {
    write_source(content);
    cut_at(15 * MIB);
    server.files[job.temporary][100] ^= 1;
    told.clear();
    copy();
    expect_only(content);
    EXPECT_EQ(server.calls_of("remove"), Texts{"remove " + job.temporary});
    EXPECT_EQ(server.written, SIZE + SIZE);
    EXPECT_EQ(told_of("checkpoint 0 "), 1) << "the old checkpoint is of a file that is gone";
}

TEST_F(FileCopierTest, BytesSpoiltOnTheirWayAreFoundAndSentAnew) {
    write_source(content);
    int spoils = 1;
    server.spoil_write = [&spoils](const std::string&, std::string& bytes) {
        if (spoils-- > 0) bytes[bytes.size() / 2] ^= 1;
    };
    EXPECT_EQ(copy().sha256, hash_of(content));
    expect_only(content);
    EXPECT_EQ(server.written, 2 * SIZE);
}

TEST_F(FileCopierTest, BytesThatTheShareDropsAreFoundAndSentAnew) {
    write_source(content);
    const std::string last = "write " + job.temporary + " " + std::to_string(20 * MIB) + " ";
    int drops = 1;
    server.spoil_write = [&](const std::string& call, std::string& bytes) {
        if (call.starts_with(last) && drops-- > 0) bytes.pop_back();
    };
    copy();
    expect_only(content);
    EXPECT_EQ(server.calls_of("remove").size(), 1U);
}

TEST_F(FileCopierTest, ShareThatKeepsGivingBackOtherBytesFailsAtTheSecondAttempt) {
    write_source(content);
    server.spoil_read = [](const std::string& call, std::string& bytes) {
        if (call.ends_with(" 0 1048576")) bytes[0] ^= 1;
    };
    EXPECT_EQ(failure(), FailureKind::mismatch);
    EXPECT_TRUE(server.files.empty()) << "nothing of it can be trusted";
    EXPECT_EQ(server.written, 2 * SIZE);
    EXPECT_EQ(told.back(), "checkpoint 0 ");
    EXPECT_EQ(job.offset, 0);
}

TEST_F(FileCopierTest, TemporaryFileLongerThanTheSourceIsCut) {
    write_source(content);
    server.put(job.temporary, content + "more");
    copy();
    expect_only(content);
    EXPECT_EQ(server.written, 0);
    EXPECT_EQ(server.calls_of("truncate"),
              Texts{"truncate " + job.temporary + " " + std::to_string(SIZE)});
}

TEST_F(FileCopierTest, TemporaryFileOfAnotherContentIsOverwrittenAndCut) {
    write_source("short");
    server.put(job.temporary, content);
    job.check = false;
    copy();
    expect_only("short");
}

TEST_F(FileCopierTest, CopyThatStandsThereAlreadyIsKept) {
    write_source(content);
    server.put(job.target, content);
    EXPECT_EQ(copy().sha256, hash_of(content));
    expect_only(content);
    EXPECT_EQ(server.written, 0);
    EXPECT_TRUE(server.calls_of("rename").empty());
}

TEST_F(FileCopierTest, CopyThatStandsThereWithoutItsDescriptionGetsOne) {
    write_source("hello");
    server.put(job.target, "hello");
    job.recorded_size = 5;
    job.side_file = SideFile{.channel = 3, .guid = "g-3", .start = 1};
    copy();
    EXPECT_TRUE(server.files.contains(job.target + ".json"));
    EXPECT_EQ(server.calls_of("write").size(), 1U) << "only the description is sent";
}

TEST_F(FileCopierTest, TruncatedCopyOnTheShareIsReplaced) {
    write_source(content);
    for (const long long recorded : {-1LL, SIZE}) {
        job.recorded_size = recorded;
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

TEST_F(FileCopierTest, RecordedCopyOfAnOlderSourceIsReplacedWhenTheNewOneIsWhole) {
    write_source(content);
    server.put(job.target, "an older recording");
    job.recorded_size = 18;
    cut_at(15 * MIB);
    EXPECT_EQ(server.files.at(job.target), "an older recording");
    copy();
    expect_only(content);
}

TEST_F(FileCopierTest, MissingSourceIsToldBeforeTheShareIsAsked) {
    EXPECT_EQ(failure(), FailureKind::gone);
    std::filesystem::create_symlink("/etc/passwd", job.source);
    EXPECT_EQ(failure(), FailureKind::source);
    EXPECT_TRUE(server.calls.empty());
}

TEST_F(FileCopierTest, SourceThatBecomesShorterIsTold) {
    write_source(content);
    while_copying([this] { std::filesystem::resize_file(job.source, 100); });
    EXPECT_EQ(failure(), FailureKind::source);
    EXPECT_FALSE(server.files.contains(job.target));
}

TEST_F(FileCopierTest, SourceThatGrowsIsCopiedUpToTheSizeItHad) {
    write_source(content);
    while_copying([this] { std::ofstream(job.source, std::ios::app) << "more"; });
    EXPECT_EQ(copy().size, SIZE);
    expect_only(content);
}

TEST_F(FileCopierTest, SourceThatIsDeletedMeanwhileIsCopiedAllTheSame) {
    write_source(content);
    while_copying([this] { std::filesystem::remove(job.source); });
    copy();
    expect_only(content);
}

TEST_F(FileCopierTest, FullShareIsToldAndGoesOnWhenThereIsRoom) {
    write_source(content);
    server.room = 5 * MIB;
    EXPECT_EQ(failure(), FailureKind::full);
    EXPECT_FALSE(server.files.contains(job.target));
    server.room = SIZE;
    copy();
    expect_only(content);
    EXPECT_EQ(server.written, SIZE);
}

TEST_F(FileCopierTest, WithoutCheckingReadNothingIsReadBackOrHashed) {
    write_source(content);
    job.check = false;
    EXPECT_EQ(copy().sha256, "");
    expect_only(content);
    EXPECT_TRUE(server.calls_of("read").empty());
    EXPECT_EQ(told_of("checkpoint"), 2);
    EXPECT_EQ(job.prefix_sha256, "");
}

TEST_F(FileCopierTest, WithoutCheckingReadAResumeComparesAll) {
    write_source(content);
    job.check = false;
    cut_at(15 * MIB);
    EXPECT_EQ(job.offset, 8 * MIB);
    EXPECT_EQ(job.prefix_sha256, "");
    server.files[job.temporary][100] ^= 1;
    copy();
    expect_only(content);
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
