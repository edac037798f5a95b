// What a copier takes a file for that has the target's name already.
#include "services/backup_daemon/copy/standing.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/copy/copy_fixture.h"

using namespace services;

namespace {

class StandingTest : public CopyFixture {
protected:
    StandingTest() { write_source(content); }

    Standing standing() {
        server.calls.clear();
        CopyState state = new_state();
        state.hash.add("of a step before", 16);
        const Standing found = what_stands_there(share, job, state);
        hash = state.hash.hex();
        return found;
    }

    Standing standing_of(const std::string& there, long long recorded = -1) {
        server.put(job.target, there);
        job.recorded_size = recorded;
        return standing();
    }

    bool was_opened() const { return !server.calls_of("open").empty(); }

    const long long size = 2 * MIB + 5;
    const std::string content = content_of(size);
    std::string hash;
};

TEST_F(StandingTest, NameIsFree) {
    EXPECT_EQ(standing(), Standing::nothing);
    EXPECT_EQ(server.calls, Texts{"look a/b/file.mp4"});
}

TEST_F(StandingTest, WholeSourceIsEqualWhetherRecordedOrNot) {
    for (const long long recorded : {-1LL, size, 7LL}) {
        EXPECT_EQ(standing_of(content, recorded), Standing::equal);
        EXPECT_EQ(hash, hash_of(content));
        EXPECT_EQ(server.calls_of("read").size(), 3U);
    }
}

TEST_F(StandingTest, UnrecordedBeginningOfTheSourceIsOurs) {
    for (const long long there : {0LL, 1LL, CHUNK_SIZE, size - 1})
        EXPECT_EQ(standing_of(content_of(there)), Standing::ours) << there;
}

TEST_F(StandingTest, UnrecordedFileThatDiffersAnywhereIsForeign) {
    for (const long long at : {0LL, CHUNK_SIZE, size - 1})
        EXPECT_EQ(standing_of(spoilt(content, at)), Standing::foreign) << at;
    EXPECT_EQ(standing_of(spoilt(content_of(size - 1), size - 2)), Standing::foreign);
    EXPECT_EQ(standing_of("x"), Standing::foreign);
}

TEST_F(StandingTest, UnrecordedLongerFileIsForeignWithoutALook) {
    EXPECT_EQ(standing_of(content + "x"), Standing::foreign);
    EXPECT_FALSE(was_opened());
}

TEST_F(StandingTest, RecordedFileIsOursWhateverItHolds) {
    EXPECT_EQ(standing_of(spoilt(content, size - 1), size), Standing::ours);
    EXPECT_TRUE(was_opened());
    EXPECT_EQ(standing_of("an older recording", 18), Standing::ours);
    EXPECT_FALSE(was_opened()) << "it cannot be equal";
    EXPECT_EQ(standing_of(content + "x", size), Standing::ours);
    EXPECT_FALSE(was_opened());
}

TEST_F(StandingTest, TruncatedRecordedCopyIsNotTakenForGood) {
    EXPECT_EQ(standing_of(content_of(size - 1), size), Standing::ours);
}

TEST_F(StandingTest, EmptyCopyMayBeRecordedToo) {
    EXPECT_EQ(standing_of("x", 0), Standing::ours);
}

TEST_F(StandingTest, EmptySourceEqualsAnEmptyFile) {
    write_source("");
    EXPECT_EQ(standing_of(""), Standing::equal);
    EXPECT_EQ(hash, hash_of(""));
    EXPECT_EQ(standing_of("x"), Standing::foreign);
}

TEST_F(StandingTest, ShareThatGivesLessThanItsSizeSaysIsNotTakenForEqual) {
    server.spoil_read = [](const std::string&, std::string& bytes) { bytes.pop_back(); };
    EXPECT_EQ(standing_of(content), Standing::foreign);
    EXPECT_EQ(standing_of(content, size), Standing::ours);
}

}  // namespace
