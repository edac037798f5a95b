// A recording that has grown since it was copied: what goes over the line, and what must not.
#include <gtest/gtest.h>

#include "tests/services/backup_daemon/copy/copier_fixture.h"

using namespace services;

namespace {

class GrownCopyTest : public CopierFixture {
protected:
    GrownCopyTest() {
        write_source(content);
        server.put(job.target, older);
        record(hash_of(older));
    }

    bool was_asked_to_copy() const { return !server.calls_of("copy_beginning").empty(); }

    static constexpr long long OLD_SIZE = 13 * MIB + 3;
    const std::string older = content_of(OLD_SIZE);
};

TEST_F(GrownCopyTest, OnlyWhatIsNewIsSent) {
    EXPECT_EQ(copy(), hash_of(content));
    expect_only(content);
    EXPECT_EQ(server.written, SIZE - OLD_SIZE);
    EXPECT_EQ(told.at(14), "alive") << "the beginning is hashed and copied";
    EXPECT_EQ(told_of("checkpoint " + std::to_string(OLD_SIZE) + " " + hash_of(older)), 1);
}

TEST_F(GrownCopyTest, EverythingIsReadBackAllTheSame) {
    copy();
    EXPECT_EQ(server.calls_of("read " + job.temporary).size(), 23U);
}

TEST_F(GrownCopyTest, WithoutAKnownHashAllIsSent) {
    job.recorded->sha256.clear();
    copy();
    expect_only(content);
    EXPECT_FALSE(was_asked_to_copy());
    EXPECT_EQ(server.written, SIZE);
}

TEST_F(GrownCopyTest, WhereTheBeginningHasChangedAllIsSent) {
    write_source(spoilt(content, 5));
    copy();
    expect_only(spoilt(content, 5));
    EXPECT_FALSE(was_asked_to_copy());
}

TEST_F(GrownCopyTest, WhatIsNotAsRecordedDoesNotServe) {
    server.modified_ns[job.target] = 10'000'000'000;
    EXPECT_EQ(copy(), hash_of(content));
    EXPECT_FALSE(was_asked_to_copy());
    EXPECT_EQ(server.written, SIZE) << "it is the source's beginning, and may be replaced";
}

TEST_F(GrownCopyTest, ServerThatCannotCopyGetsAll) {
    for (const Break when : {Break::before, Break::halfway, Break::after}) {
        server = {};
        server.put(job.target, older);
        job.offset = 0;
        job.prefix_sha256.clear();
        server.failure = PlannedFailure{.call = 2, .when = when, .kind = FailureKind::other};
        copy();
        EXPECT_TRUE(was_asked_to_copy());
        expect_only(content);
        EXPECT_EQ(server.written, SIZE);
    }
}

TEST_F(GrownCopyTest, CopyThatIsDamagedOnTheServerIsFoundByTheCheckAndAllIsSent) {
    server.files[job.target][9] ^= 1;
    EXPECT_EQ(copy(), hash_of(content));
    expect_only(content);
    EXPECT_EQ(server.calls_of("copy_beginning").size(), 1U);
    EXPECT_EQ(server.written, SIZE - OLD_SIZE + SIZE);
}

TEST_F(GrownCopyTest, CutGoesOnBehindWhatTheServerCopied) {
    cut_at(OLD_SIZE + 2 * MIB);
    EXPECT_EQ(job.offset, OLD_SIZE);
    copy();
    expect_only(content);
    EXPECT_EQ(server.calls_of("copy_beginning").size(), 1U);
    EXPECT_EQ(server.written, SIZE - OLD_SIZE);
}

}  // namespace
