// How much of an unfinished file stays, and how much of it is looked at for that.
#include "services/backup_daemon/copy/resume.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/copy/copy_fixture.h"

using namespace services;

namespace {

class ResumeTest : public CopyFixture {
protected:
    ResumeTest() { write_source(content); }

    long long resume(const std::string& there, bool hashed = true) {
        server.put("file", there);
        server.calls.clear();
        told.clear();
        CopyState state = new_state(hashed);
        const auto file = share.open("file", Share::Open::write);
        const Beginning begin =
            resume_point(*file, static_cast<long long>(there.size()), job, state);
        hash = state.hash.hex();
        unread = begin.unread;
        return begin.size;
    }

    void note(long long offset) {
        job.offset = offset;
        job.prefix_sha256 = hash_of(content_of(offset));
    }

    Texts reads() const { return server.calls_of("read"); }

    const long long size = 4 * MIB + 5;
    const std::string content = content_of(size);
    std::string hash;
    long long unread = 0;
};

TEST_F(ResumeTest, NothingThereBeginsAtTheBeginning) {
    EXPECT_EQ(resume(""), 0);
    EXPECT_EQ(hash, hash_of(""));
    EXPECT_TRUE(reads().empty());
}

TEST_F(ResumeTest, WithoutACheckpointEverythingIsCompared) {
    EXPECT_EQ(resume(content_of(2 * MIB + 9)), 2 * MIB + 9);
    EXPECT_EQ(unread, 0);
    EXPECT_EQ(reads().size(), 3U);
    EXPECT_EQ(hash, hash_of(content_of(2 * MIB + 9)));
}

TEST_F(ResumeTest, GoesOnAtTheFirstChunkThatDiffers) {
    EXPECT_EQ(resume(spoilt(content_of(3 * MIB), 2 * MIB + 1)), 2 * MIB);
    EXPECT_EQ(hash, hash_of(content_of(2 * MIB)));
    EXPECT_EQ(resume(spoilt(content_of(3 * MIB), 0)), 0);
    EXPECT_EQ(hash, hash_of(""));
}

TEST_F(ResumeTest, NoMoreStaysThanTheSourceHas) {
    EXPECT_EQ(resume(content + "more"), size);
    EXPECT_EQ(hash, hash_of(content));
}

TEST_F(ResumeTest, WhatTheCheckpointVouchesForIsNotRead) {
    note(2 * MIB);
    EXPECT_EQ(resume(content_of(3 * MIB + 1)), 3 * MIB + 1);
    EXPECT_EQ(reads(), (Texts{"read file 2097152 1048576", "read file 3145728 1"}));
    EXPECT_EQ(hash, hash_of(content_of(3 * MIB + 1)));
    EXPECT_EQ(unread, 2 * MIB);
    EXPECT_EQ(told_of("alive"), 4) << "two chunks of the source hashed, two compared";
}

TEST_F(ResumeTest, DifferenceBehindTheCheckpointCostsWhatIsBehindItOnly) {
    note(2 * MIB);
    EXPECT_EQ(resume(spoilt(content_of(4 * MIB), 2 * MIB)), 2 * MIB);
    EXPECT_EQ(hash, hash_of(content_of(2 * MIB)));
}

TEST_F(ResumeTest, CheckpointMayReachToTheEndOfWhatIsThere) {
    note(3 * MIB);
    EXPECT_EQ(resume(content_of(3 * MIB)), 3 * MIB);
    EXPECT_TRUE(reads().empty());
    note(size);
    EXPECT_EQ(resume(content), size);
    EXPECT_TRUE(reads().empty());
    EXPECT_EQ(hash, hash_of(content));
}

TEST_F(ResumeTest, CheckpointBehindWhatIsThereIsNotTrusted) {
    note(3 * MIB);
    EXPECT_EQ(resume(content_of(3 * MIB - 1)), 3 * MIB - 1);
    EXPECT_EQ(reads().size(), 3U);
    EXPECT_EQ(hash, hash_of(content_of(3 * MIB - 1)));
}

TEST_F(ResumeTest, CheckpointBehindTheSourcesEndIsNotTrusted) {
    job.offset = size + 1;
    job.prefix_sha256 = hash_of(content + "x");
    EXPECT_EQ(resume(content + "x"), size);
    EXPECT_EQ(reads().size(), 5U);
}

TEST_F(ResumeTest, CheckpointOfAnotherContentIsNotTrusted) {
    note(2 * MIB);
    write_source(spoilt(content, 5));
    EXPECT_EQ(resume(content_of(3 * MIB)), 0);
    EXPECT_EQ(unread, 0);
    EXPECT_EQ(reads(), Texts{"read file 0 1048576"});
    EXPECT_EQ(hash, hash_of(""));
}

TEST_F(ResumeTest, CheckpointWithoutAHashIsNotTrusted) {
    job.offset = 2 * MIB;
    EXPECT_EQ(resume(spoilt(content_of(3 * MIB), 5)), 0);
    EXPECT_EQ(told_of("alive"), 0) << "the source was read for nothing";
}

TEST_F(ResumeTest, WithoutAWantedHashACheckpointCountsAllTheSame) {
    note(2 * MIB);
    EXPECT_EQ(resume(content_of(3 * MIB), false), 3 * MIB);
    EXPECT_EQ(reads().size(), 1U);
    EXPECT_EQ(hash, "");
}

}  // namespace
