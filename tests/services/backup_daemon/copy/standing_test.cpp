// What a copier takes a file for that has the target's name already.
#include "services/backup_daemon/copy/standing.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/copy/copy_fixture.h"

using namespace services;

namespace {

using Kind = Standing::Kind;

class StandingTest : public CopyFixture {
protected:
    StandingTest() { write_source(content); }

    Kind standing() {
        server.calls.clear();
        CopyState state = new_state();
        state.hash.add("of a step before", 16);
        const Standing found = what_stands_there(share, job, state);
        EXPECT_EQ(found.seen, server.state(job.target).value_or(FileState{}));
        hash = state.hash.hex();
        return found.kind;
    }

    /// What a file is taken for of which nothing is recorded.
    Kind standing_of(const std::string& there) {
        server.put(job.target, there);
        job.recorded.reset();
        return standing();
    }

    /// What a file is taken for where a copy of that size, and of that time, is recorded.
    Kind standing_of(const std::string& there, long long size,
                     std::optional<long long> modified_ns = {}) {
        server.put(job.target, there);
        job.recorded = RecordedCopy{size, modified_ns, ""};
        return standing();
    }

    bool was_opened() const { return !server.calls_of("open").empty(); }

    const long long size = 2 * MIB + 5;
    const std::string content = content_of(size);
    std::string hash;
};

TEST_F(StandingTest, NameIsFree) {
    EXPECT_EQ(standing(), Kind::nothing);
    EXPECT_EQ(server.calls, Texts{"look a/b/file.mp4"});
}

TEST_F(StandingTest, DoubtedCopyThatIsAsItWasMadeIsNotReplacedByARecordingThatIsNot) {
    std::string made = content;
    made[5] ^= 1;
    server.put(job.target, made);
    job.recorded = RecordedCopy{.size = size,
                                .sha256 = hash_of(made),
                                .doubted = true,
                                .source_modified_ns = opened().modified_ns()};
    try {
        standing();
        FAIL() << "it would be replaced";
    } catch (const CopyFailure& failure) {
        EXPECT_EQ(failure.kind, FailureKind::source);
    }
    job.recorded->source_modified_ns -= 1;
    EXPECT_EQ(standing(), Kind::recorded) << "the recording was written to since";
    job.recorded->source_modified_ns += 1;
    job.recorded->sha256 = hash_of(content);
    EXPECT_EQ(standing(), Kind::recorded) << "another content than it was made with";
    job.recorded->sha256 = "";
    EXPECT_EQ(standing(), Kind::recorded) << "nobody knows what it was made with";
}

TEST_F(StandingTest, WholeSourceIsEqualWhetherRecordedOrNot) {
    for (const long long recorded : {-1LL, size, 7LL}) {
        EXPECT_EQ(recorded < 0 ? standing_of(content) : standing_of(content, recorded),
                  Kind::equal);
        EXPECT_EQ(hash, hash_of(content));
        EXPECT_EQ(server.calls_of("read").size(), 3U);
    }
}

TEST_F(StandingTest, BeginningOfTheSourceMayGo) {
    for (const long long there : {1LL, CHUNK_SIZE, size - 1}) {
        EXPECT_EQ(standing_of(content_of(there)), Kind::beginning) << there;
        EXPECT_EQ(standing_of(content_of(there), size), Kind::beginning) << "it was truncated";
    }
}

TEST_F(StandingTest, SourceWithZerosForSomeOfItsBytesMayGo) {
    const long long most = size - 5;
    for (const std::string& there :
         {holed(content, 0, 1), holed(content, 7, CHUNK_SIZE + 7), holed(content, most, size),
          holed(content, 0, size), holed(content_of(most), CHUNK_SIZE, most)}) {
        EXPECT_EQ(standing_of(there), Kind::remnant);
        EXPECT_EQ(standing_of(there, size + 1), Kind::remnant) << "it was recorded otherwise";
    }
}

TEST_F(StandingTest, OtherByteAmongZerosIsForeignAndNothingBehindItIsRead) {
    const std::string zeros = holed(content, 0, size);
    EXPECT_EQ(standing_of(spoilt(zeros, 3)), Kind::foreign);
    EXPECT_EQ(server.calls_of("read").size(), 2U) << "the same chunk, for each comparison";
    EXPECT_EQ(standing_of(spoilt(zeros, size - 1)), Kind::foreign);
    EXPECT_EQ(standing_of(zeros + '\0'), Kind::foreign) << "it is longer";
}

TEST_F(StandingTest, ZerosWhereTheSourceHasSomeAreTheSources) {
    const std::string gap = holed(content, 9, CHUNK_SIZE);
    write_source(gap);
    EXPECT_EQ(standing_of(gap), Kind::equal);
    EXPECT_EQ(hash, hash_of(gap));
    EXPECT_EQ(standing_of(content), Kind::foreign) << "it has what the source has not";
}

TEST_F(StandingTest, EmptyFileMayGo) {
    EXPECT_NE(standing_of(""), Kind::foreign);
}

TEST_F(StandingTest, UnrecordedFileThatDiffersAnywhereIsForeign) {
    for (const long long at : {0LL, CHUNK_SIZE, size - 1})
        EXPECT_EQ(standing_of(spoilt(content, at)), Kind::foreign) << at;
    EXPECT_EQ(standing_of(spoilt(content_of(size - 1), size - 2)), Kind::foreign);
    EXPECT_EQ(standing_of("x"), Kind::foreign);
}

TEST_F(StandingTest, UnrecordedLongerFileIsForeignWithoutALook) {
    EXPECT_EQ(standing_of(content + "x"), Kind::foreign);
    EXPECT_FALSE(was_opened());
}

TEST_F(StandingTest, RecordedCopyMayGoWhateverItHolds) {
    EXPECT_EQ(standing_of(spoilt(content, size - 1), size), Kind::recorded);
    EXPECT_TRUE(was_opened()) << "it could be equal";
    EXPECT_EQ(standing_of("an older recording", 18), Kind::recorded);
    EXPECT_FALSE(was_opened()) << "it cannot be equal";
    EXPECT_EQ(standing_of(content + "x", size + 1), Kind::recorded);
    EXPECT_FALSE(was_opened());
    EXPECT_EQ(standing_of(holed(content, 0, size), size), Kind::recorded);
    EXPECT_EQ(standing_of(content_of(CHUNK_SIZE), CHUNK_SIZE), Kind::recorded);
    EXPECT_FALSE(was_opened()) << "its beginning need not be the source's";
}

TEST_F(StandingTest, CopyThatWasChangedOnTheShareIsNotTheRecordedOne) {
    EXPECT_EQ(standing_of("an older recording", 17), Kind::foreign) << "it has grown";
    EXPECT_EQ(standing_of(content + "x", size), Kind::foreign);
    EXPECT_EQ(standing_of(spoilt(content_of(size - 1), 3), size), Kind::foreign);
    EXPECT_EQ(standing_of("x", 0), Kind::foreign);
}

TEST_F(StandingTest, TimeTellsARecordedCopyFromOneOfTheSameSize) {
    constexpr long long SECOND = 1'000'000'000;
    server.modified_ns[job.target] = 100 * SECOND;
    const std::string changed = spoilt(content, 5);
    for (const long long recorded : {98, 100, 102})
        EXPECT_EQ(standing_of(changed, size, recorded * SECOND), Kind::recorded) << recorded;
    for (const long long recorded : {0, 97, 103})
        EXPECT_EQ(standing_of(changed, size, recorded * SECOND), Kind::foreign) << recorded;
    EXPECT_EQ(standing_of(content, size, 7), Kind::equal) << "somebody has only touched it";
    EXPECT_EQ(standing_of(changed, size), Kind::recorded) << "no time is known";
}

TEST_F(StandingTest, ClaimOfOursIsKnownAndSoIsWhatACutLeftOfIt) {
    EXPECT_EQ(standing_of(job.claim), Kind::claim);
    EXPECT_EQ(standing_of(job.claim.substr(0, 5)), Kind::claim);
    EXPECT_EQ(standing_of(job.claim, size), Kind::claim);
    EXPECT_EQ(standing_of(job.claim + "x"), Kind::foreign);
    EXPECT_EQ(standing_of("claimed by that recorder\n"), Kind::foreign);
    write_source("tiny");
    EXPECT_EQ(standing_of(job.claim), Kind::claim) << "it is longer than the source";
    EXPECT_EQ(standing_of("something else"), Kind::foreign);
}

TEST_F(StandingTest, ClaimWhoseTextAServerHasLostMayGo) {
    const auto length = static_cast<long long>(job.claim.size());
    const std::string lost = holed(job.claim, 0, length);
    EXPECT_EQ(standing_of(lost), Kind::remnant);
    write_source("tiny");
    EXPECT_EQ(standing_of(lost), Kind::remnant) << "it is longer than the source";
    EXPECT_EQ(standing_of(holed(job.claim, 5, length)), Kind::remnant);
    EXPECT_EQ(standing_of(spoilt(lost, 5)), Kind::foreign);
}

TEST_F(StandingTest, EmptySourceEqualsAnEmptyFile) {
    write_source("");
    EXPECT_EQ(standing_of(""), Kind::equal);
    EXPECT_EQ(hash, hash_of(""));
    EXPECT_EQ(standing_of("x"), Kind::foreign);
}

TEST_F(StandingTest, ShareThatGivesLessThanItsSizeSaysIsNotTakenForEqual) {
    server.spoil_read = [](const std::string&, std::string& bytes) { bytes.pop_back(); };
    EXPECT_EQ(standing_of(content), Kind::foreign);
    EXPECT_EQ(standing_of(content, size), Kind::recorded);
}

}  // namespace
