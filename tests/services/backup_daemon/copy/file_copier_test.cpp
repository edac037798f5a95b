// What a copier sends, keeps, compares and refuses, for every state it may find on the share.
#include "services/backup_daemon/copy/file_copier.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "services/backup_daemon/copy/sha256.h"
#include "tests/services/backup_daemon/copy/memory_share.h"
#include "tests/support/temporary_state.h"

using namespace services;

namespace {

constexpr long long MIB = 1024 * 1024;

std::string content_of(long long size) {
    std::string content(static_cast<std::size_t>(size), '\0');
    unsigned state = 1;
    for (char& byte : content) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return content;
}

std::string hash_of(const std::string& content) {
    Sha256 hash;
    hash.add(content.data(), content.size());
    return hash.hex();
}

struct Cut : CopyFailure {
    Cut() : CopyFailure(FailureKind::lost, "cut") {}
};

class FileCopierTest : public testing::Test {
protected:
    FileCopierTest() {
        job.source = folder.path() + "/source";
        job.target = "a/b/file.mp4";
        job.temporary = "a/b/.file.mp4.1.part";
    }

    void write_source(const std::string& content) {
        std::ofstream(job.source, std::ios::binary) << content;
    }

    CopyResult copy() {
        MemoryShare share(server);
        FileCopier copier(share, {[this](long long offset) { at = offset; },
                                  [this](long long offset, const std::string& sha256) {
                                      job.offset = offset;
                                      job.prefix_sha256 = sha256;
                                  },
                                  [] {}});
        return copier.copy(job);
    }

    FailureKind failure() {
        try {
            copy();
        } catch (const CopyFailure& error) {
            return error.kind;
        }
        throw std::runtime_error("it did not fail");
    }

    void cut_at(long long offset) {
        server.before_write = [offset](long long begin) {
            if (begin >= offset) throw Cut();
        };
        EXPECT_THROW(copy(), Cut);
        server.before_write = [](long long) {};
    }

    TemporaryFolder folder;
    MemoryServer server;
    CopyJob job;
    long long at = 0;
    const std::string content = content_of(20 * MIB + 17);
};

TEST_F(FileCopierTest, CopiesAndNamesTheFileWhenItIsWhole) {
    write_source(content);
    const CopyResult result = copy();
    EXPECT_EQ(server.files.at(job.target), content);
    EXPECT_EQ(server.files.size(), 1U);
    EXPECT_TRUE(server.folders.contains("a/b"));
    EXPECT_EQ(result.size, 20 * MIB + 17);
    EXPECT_EQ(result.sha256, hash_of(content));
    EXPECT_EQ(server.written, result.size);
}

TEST_F(FileCopierTest, CopiesAnEmptyFile) {
    write_source("");
    EXPECT_EQ(copy().sha256, hash_of(""));
    EXPECT_EQ(server.files.at(job.target), "");
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
    copy();
    EXPECT_EQ(server.files.at(job.target), content);
    EXPECT_EQ(server.written, 20 * MIB + 17);
}

TEST_F(FileCopierTest, GoesOnWithoutAnyCheckpoint) {
    write_source(content);
    cut_at(15 * MIB);
    job.offset = 0;
    job.prefix_sha256.clear();
    copy();
    EXPECT_EQ(server.files.at(job.target), content);
    EXPECT_EQ(server.written, 20 * MIB + 17);
}

TEST_F(FileCopierTest, SourceThatChangedBelowTheCheckpointIsSentAnew) {
    write_source(content);
    cut_at(15 * MIB);
    std::string other = content;
    other[5] ^= 1;
    write_source(other);
    copy();
    EXPECT_EQ(server.files.at(job.target), other);
}

TEST_F(FileCopierTest, DamageBehindTheCheckpointIsSentAnew) {
    write_source(content);
    cut_at(15 * MIB);
    server.files[job.temporary][static_cast<std::size_t>(12 * MIB)] ^= 1;
    copy();
    EXPECT_EQ(server.files.at(job.target), content);
    EXPECT_EQ(server.written, 20 * MIB + 17 + 3 * MIB);
}

TEST_F(FileCopierTest, DamageBelowTheCheckpointIsFoundByTheCheckAndSentAnew) {
    write_source(content);
    cut_at(15 * MIB);
    server.files[job.temporary][100] ^= 1;
    copy();
    EXPECT_EQ(server.files.at(job.target), content);
    EXPECT_EQ(server.files.size(), 1U);
}

TEST_F(FileCopierTest, ShareThatKeepsGivingBackOtherBytesFails) {
    write_source(content);
    server.spoil_read = [](std::string& read) {
        if (!read.empty()) read[0] ^= 1;
    };
    EXPECT_EQ(failure(), FailureKind::mismatch);
    EXPECT_TRUE(server.files.empty());
}

TEST_F(FileCopierTest, TemporaryFileLongerThanTheSourceIsCut) {
    write_source(content);
    server.files[job.temporary] = content + "more";
    copy();
    EXPECT_EQ(server.files.at(job.target), content);
}

TEST_F(FileCopierTest, CopyThatStandsThereAlreadyIsKept) {
    write_source(content);
    server.files[job.target] = content;
    EXPECT_EQ(copy().sha256, hash_of(content));
    EXPECT_EQ(server.written, 0);
}

TEST_F(FileCopierTest, UnrecordedBeginningOfTheSourceIsReplaced) {
    write_source(content);
    server.files[job.target] = content.substr(0, 1000);
    copy();
    EXPECT_EQ(server.files.at(job.target), content);
}

TEST_F(FileCopierTest, SomebodyElsesFileStays) {
    write_source(content);
    for (const std::string& other : {std::string("other"), content + "x"}) {
        server.files = {{job.target, other}};
        EXPECT_EQ(failure(), FailureKind::occupied);
        EXPECT_EQ(server.files, (std::map<std::string, std::string>{{job.target, other}}));
    }
}

TEST_F(FileCopierTest, RecordedCopyOfAnOlderSourceIsReplaced) {
    write_source(content);
    server.files[job.target] = "an older recording";
    job.recorded_size = 18;
    copy();
    EXPECT_EQ(server.files.at(job.target), content);
}

TEST_F(FileCopierTest, MissingSourceIsTold) {
    EXPECT_EQ(failure(), FailureKind::gone);
}

TEST_F(FileCopierTest, SourceThatIsALinkOrAFolderIsNotRead) {
    std::filesystem::create_symlink("/etc/passwd", job.source);
    EXPECT_EQ(failure(), FailureKind::source);
}

TEST_F(FileCopierTest, SourceThatBecomesShorterIsTold) {
    write_source(content);
    server.before_write = [this](long long offset) {
        if (offset == 0) std::filesystem::resize_file(job.source, 100);
    };
    EXPECT_EQ(failure(), FailureKind::source);
    EXPECT_FALSE(server.files.contains(job.target));
}

TEST_F(FileCopierTest, SourceThatGrowsIsCopiedUpToTheSizeItHad) {
    write_source(content);
    server.before_write = [this](long long offset) {
        if (offset == 0) std::ofstream(job.source, std::ios::app | std::ios::binary) << "more";
    };
    EXPECT_EQ(copy().size, 20 * MIB + 17);
    EXPECT_EQ(server.files.at(job.target), content);
}

TEST_F(FileCopierTest, FullShareIsTold) {
    write_source(content);
    server.room = 5 * MIB;
    try {
        copy();
        FAIL();
    } catch (const CopyFailure& error) {
        EXPECT_EQ(error.kind, FailureKind::full);
    }
    EXPECT_FALSE(server.files.contains(job.target));
}

TEST_F(FileCopierTest, WithoutCheckingReadNothingIsHashedAndAResumeComparesAll) {
    write_source(content);
    job.check = false;
    cut_at(15 * MIB);
    EXPECT_EQ(job.offset, 8 * MIB);
    EXPECT_EQ(job.prefix_sha256, "");
    server.files[job.temporary][100] ^= 1;
    EXPECT_EQ(copy().sha256, "");
    EXPECT_EQ(server.files.at(job.target), content);
}

TEST_F(FileCopierTest, DescriptionLiesBesideTheCopy) {
    write_source("hello");
    job.side_file = SideFile{3, "g-3", 1709297110};
    job.check = false;
    copy();
    EXPECT_EQ(server.files.at(job.target + ".json"),
              R"({"channel":3,"guid":"g-3","start":1709297110,"length":5,"sha256":")" +
                  hash_of("hello") + "\"}\n");
    EXPECT_EQ(server.files.size(), 2U);
}

TEST(Sha256, MayBeAskedInTheMiddle) {
    Sha256 hash;
    hash.add("ab", 2);
    EXPECT_EQ(hash.hex(), "fb8e20fc2e4c3f248c60c39bd652f3c1347298bb977b8b4d5903b85055620603");
    hash.add("c", 1);
    EXPECT_EQ(hash.hex(), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

}  // namespace
