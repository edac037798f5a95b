// What a copier makes of an attempt before it, and of bytes that did not arrive as they were sent.
#include <gtest/gtest.h>

#include "tests/services/backup_daemon/copy/copier_fixture.h"

using namespace services;

namespace {

using SecondAttemptTest = CopierFixture;

TEST_F(SecondAttemptTest, NothingHasTheNameWhileItIsUnfinished) {
    write_source(content);
    cut_at(10 * MIB);
    EXPECT_FALSE(server.files.contains(job.target));
    EXPECT_TRUE(server.files.contains(job.temporary));
}

TEST_F(SecondAttemptTest, GoesOnWhereItWasCutAndSendsNothingTwice) {
    write_source(content);
    cut_at(15 * MIB);
    EXPECT_EQ(job.offset, 8 * MIB);
    EXPECT_EQ(job.prefix_sha256, hash_of(content_of(8 * MIB)));
    told.clear();
    copy();
    EXPECT_EQ(told.at(8 + 7), "at " + std::to_string(15 * MIB)) << "behind what was looked at";
    expect_only(content);
    EXPECT_EQ(sent(), SIZE);
}

TEST_F(SecondAttemptTest, GoesOnWithoutAnyCheckpoint) {
    write_source(content);
    cut_at(15 * MIB);
    job.offset = 0;
    job.prefix_sha256.clear();
    copy();
    expect_only(content);
    EXPECT_EQ(sent(), SIZE);
}

TEST_F(SecondAttemptTest, SourceThatChangedBelowTheCheckpointIsSentAnewAtOnce) {
    write_source(content);
    cut_at(15 * MIB);
    write_source(spoilt(content, 5));
    copy();
    expect_only(spoilt(content, 5));
    EXPECT_TRUE(server.calls_of("remove").empty()) << "it was not left to the check to find";
    EXPECT_EQ(sent(), SIZE + 15 * MIB);
}

TEST_F(SecondAttemptTest, DamageBehindTheCheckpointIsSentAnewAtOnce) {
    write_source(content);
    cut_at(15 * MIB);
    server.files[job.temporary][static_cast<std::size_t>(12 * MIB)] ^= 1;
    copy();
    expect_only(content);
    EXPECT_TRUE(server.calls_of("remove").empty());
    EXPECT_EQ(sent(), SIZE + 3 * MIB);
}

TEST_F(SecondAttemptTest, DamageBelowTheCheckpointIsFoundByTheCheckAndAllIsSentAnew) {
    write_source(content);
    cut_at(15 * MIB);
    server.files[job.temporary][100] ^= 1;
    told.clear();
    copy();
    expect_only(content);
    EXPECT_EQ(server.calls_of("remove"), Texts{"remove " + job.temporary});
    EXPECT_EQ(sent(), SIZE + SIZE);
    EXPECT_EQ(told_of("checkpoint 0 "), 1) << "the old checkpoint is of a file that is gone";
}

TEST_F(SecondAttemptTest, BytesSpoiltOnTheirWayAreFoundAndSentAnew) {
    write_source(content);
    int spoils = 1;
    server.spoil_write = [&spoils](const std::string&, std::string& bytes) {
        if (spoils-- > 0) bytes[bytes.size() / 2] ^= 1;
    };
    EXPECT_EQ(copy(), hash_of(content));
    expect_only(content);
    EXPECT_EQ(sent(), CHUNK_SIZE + SIZE) << "found at once, before the rest is sent for nothing";
}

TEST_F(SecondAttemptTest, BytesThatTheShareDropsAreFoundAndSentAnew) {
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

TEST_F(SecondAttemptTest, ShareThatKeepsGivingBackOtherBytesFailsAtTheSecondAttempt) {
    write_source(content);
    server.spoil_read = [](const std::string& call, std::string& bytes) {
        if (call.ends_with(" 0 1048576")) bytes[0] ^= 1;
    };
    EXPECT_EQ(failure(), FailureKind::mismatch);
    EXPECT_TRUE(server.files.empty()) << "nothing of it can be trusted";
    EXPECT_EQ(sent(), 2 * CHUNK_SIZE);
    EXPECT_EQ(told.back(), "checkpoint 0 ");
    EXPECT_EQ(job.offset, 0);
}

TEST_F(SecondAttemptTest, ShareThatWritesTheEndOverTheBeginningIsFound) {
    write_source(content);
    int wraps = 1;
    server.before_call = [&](const std::string& call) {
        const std::string last = "write " + job.temporary + " " + std::to_string(20 * MIB) + " ";
        if (call.starts_with(last) && wraps-- > 0) server.files[job.temporary][16] ^= 1;
    };
    copy();
    expect_only(content);
    EXPECT_EQ(sent(), 2 * SIZE);
}

TEST_F(SecondAttemptTest, WholeFileThatWasNotNamedIsReadBackBeforeItIs) {
    write_source(content);
    server.put(job.temporary, content);
    job.offset = 16 * MIB;
    job.prefix_sha256 = hash_of(content_of(16 * MIB));
    server.files[job.temporary][static_cast<std::size_t>(12 * MIB)] ^= 1;
    copy();
    expect_only(content);
    EXPECT_EQ(sent(), SIZE);
}

TEST_F(SecondAttemptTest, WhatACutLeftIsReadOnceAndOnlyWhenTheRestIsSent) {
    write_source(content);
    cut_at(15 * MIB);
    server.calls.clear();
    copy();
    const Texts reads = server.calls_of("read " + job.temporary);
    const auto of = [&](long long offset) {
        return std::ranges::count_if(reads, [&](const std::string& call) {
            return call.starts_with("read " + job.temporary + " " + std::to_string(offset) + " ");
        });
    };
    for (long long offset = 0; offset < SIZE; offset += CHUNK_SIZE) EXPECT_EQ(of(offset), 1);
    EXPECT_TRUE(reads.back().ends_with(" " + std::to_string(7 * MIB) + " 1048576"));
}

TEST_F(SecondAttemptTest, TemporaryFileLongerThanTheSourceIsCut) {
    write_source(content);
    server.put(job.temporary, content + "more");
    copy();
    expect_only(content);
    EXPECT_EQ(sent(), 0);
    EXPECT_EQ(server.calls_of("truncate"),
              Texts{"truncate " + job.temporary + " " + std::to_string(SIZE)});
}

TEST_F(SecondAttemptTest, TemporaryFileOfAnotherContentIsOverwrittenAndCut) {
    write_source("short");
    server.put(job.temporary, content);
    job.check = false;
    copy();
    expect_only("short");
    EXPECT_EQ(server.calls_of("truncate"), Texts{"truncate " + job.temporary + " 5"});
}

TEST_F(SecondAttemptTest, RecordedCopyOfAnOlderSourceIsReplacedWhenTheNewOneIsWhole) {
    write_source(content);
    server.put(job.target, "an older recording");
    record();
    cut_at(15 * MIB);
    EXPECT_EQ(server.files.at(job.target), "an older recording");
    copy();
    expect_only(content);
}

TEST_F(SecondAttemptTest, FullShareIsToldAndGoesOnWhenThereIsRoom) {
    write_source(content);
    server.room = 5 * MIB;
    EXPECT_EQ(failure(), FailureKind::full);
    EXPECT_FALSE(server.files.contains(job.target));
    server.room = SIZE;
    copy();
    expect_only(content);
    EXPECT_EQ(sent(), SIZE);
}

TEST_F(SecondAttemptTest, WithoutCheckingReadAResumeComparesAll) {
    write_source(content);
    job.check = false;
    cut_at(15 * MIB);
    EXPECT_EQ(job.offset, 8 * MIB);
    EXPECT_EQ(job.prefix_sha256, "");
    server.files[job.temporary][100] ^= 1;
    copy();
    expect_only(content);
}

}  // namespace
