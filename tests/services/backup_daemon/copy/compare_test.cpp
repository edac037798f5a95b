// How far a file on the share equals the source, what is read for that, and what a check notices.
#include "services/backup_daemon/copy/compare.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/copy/copy_fixture.h"

using namespace services;

namespace {

class CompareTest : public CopyFixture {
protected:
    /// Compares the source with what the share has under "file".
    long long compare(const std::string& mine, const std::string& theirs, long long offset,
                      long long end) {
        write_source(mine);
        server.put("file", theirs);
        server.calls.clear();
        told.clear();
        CopyState state = new_state();
        const auto file = share.open("file", Share::Open::read);
        const long long equal = equal_until(*file, offset, end, state);
        hash = state.hash.hex();
        return equal;
    }

    /// Whether the check takes what the share has for the source.
    bool is_right(const std::string& mine, const std::string& theirs) {
        write_source(mine);
        server.put("file", theirs);
        server.calls.clear();
        told.clear();
        CopyState state = new_state();
        return reads_back(*share.open("file", Share::Open::read), state.source.size(), state);
    }

    const std::string content = content_of(3 * MIB + 5);
    const long long size = 3 * MIB + 5;
    std::string hash;
};

TEST_F(CompareTest, EqualToTheEndAndHashedOnTheWay) {
    EXPECT_EQ(compare(content, content, 0, size), size);
    EXPECT_EQ(hash, hash_of(content));
    EXPECT_EQ(server.calls,
              (Texts{"open read file", "read file 0 1048576", "read file 1048576 1048576",
                     "read file 2097152 1048576", "read file 3145728 5"}));
    EXPECT_EQ(told, (Texts{"alive", "alive", "alive", "alive"}));
}

TEST_F(CompareTest, DifferenceIsFoundWhereverItIs) {
    for (const long long at : {0LL, CHUNK_SIZE - 1, CHUNK_SIZE, 2 * CHUNK_SIZE + 7, size - 1}) {
        const long long chunk = at / CHUNK_SIZE;
        const long long begin = chunk * CHUNK_SIZE;
        EXPECT_EQ(compare(content, spoilt(content, at), 0, size), begin) << at;
        EXPECT_EQ(hash, hash_of(content_of(begin))) << "only what is equal is hashed";
        EXPECT_EQ(told_of("alive"), chunk);
        EXPECT_EQ(server.calls_of("read").size(), static_cast<std::size_t>(chunk) + 1);
    }
}

TEST_F(CompareTest, RemoteFileThatEndsTooEarlyIsEqualUpToItsLastWholeChunk) {
    EXPECT_EQ(compare(content, content_of(size - 1), 0, size), 3 * CHUNK_SIZE);
    EXPECT_EQ(compare(content, content_of(2 * CHUNK_SIZE), 0, size), 2 * CHUNK_SIZE);
    EXPECT_EQ(compare(content, "", 0, size), 0);
}

TEST_F(CompareTest, BytesOfTheChunkBeforeAreNotTakenForThoseThatAreMissing) {
    const std::string zeros(static_cast<std::size_t>(2 * CHUNK_SIZE), '\0');
    EXPECT_EQ(compare(zeros, zeros.substr(1), 0, 2 * CHUNK_SIZE), CHUNK_SIZE);
}

TEST_F(CompareTest, NothingBehindTheEndIsRead) {
    EXPECT_EQ(compare(content, spoilt(content, CHUNK_SIZE + 5), 0, CHUNK_SIZE + 5), CHUNK_SIZE + 5);
    EXPECT_EQ(server.calls_of("read"), (Texts{"read file 0 1048576", "read file 1048576 5"}));
    EXPECT_EQ(compare(content, content, 7, 7), 7);
    EXPECT_TRUE(server.calls_of("read").empty());
}

TEST_F(CompareTest, NothingBeforeTheBeginningIsReadOrHashed) {
    EXPECT_EQ(compare(content, spoilt(content, 99), 100, 200), 200);
    EXPECT_EQ(hash, hash_of(content.substr(100, 100)));
    EXPECT_EQ(server.calls_of("read"), Texts{"read file 100 100"});
}

TEST_F(CompareTest, FailureOfTheShareIsNoDifference) {
    server.failure = PlannedFailure{.call = 2, .when = Break::before, .kind = FailureKind::denied};
    EXPECT_EQ(failure_of([this] {
                  write_source(content);
                  server.put("file", content);
                  CopyState state = new_state();
                  equal_until(*share.open("file", Share::Open::read), 0, size, state);
              }),
              FailureKind::denied);
}

TEST_F(CompareTest, CheckTakesTheSourceAlone) {
    for (const long long size : {0LL, 1LL, CHUNK_SIZE - 1, CHUNK_SIZE, CHUNK_SIZE + 1, 2 * MIB + 5})
        EXPECT_TRUE(is_right(content_of(size), content_of(size))) << size;
}

TEST_F(CompareTest, CheckNoticesEveryByte) {
    const long long size = 2 * MIB + 5;
    const std::string content = content_of(size);
    for (const long long at : {0LL, CHUNK_SIZE - 1, CHUNK_SIZE, size - 1})
        EXPECT_FALSE(is_right(content, spoilt(content, at))) << at;
}

TEST_F(CompareTest, CheckNoticesMissingAndFurtherBytes) {
    for (const long long size : {CHUNK_SIZE, 2 * MIB + 5}) {
        EXPECT_FALSE(is_right(content_of(size), content_of(size - 1)));
        EXPECT_FALSE(is_right(content_of(size), content_of(size + 1)));
        EXPECT_FALSE(is_right(content_of(size), content_of(size) + std::string(1, '\0')));
        EXPECT_FALSE(is_right(content_of(size), ""));
    }
    EXPECT_FALSE(is_right("", "x"));
}

TEST_F(CompareTest, CheckAsksForWhatThereIsAndOneByteMore) {
    EXPECT_TRUE(is_right(content_of(CHUNK_SIZE + 1), content_of(CHUNK_SIZE + 1)));
    EXPECT_EQ(server.calls_of("read"),
              (Texts{"read file 0 1048576", "read file 1048576 1", "read file 1048577 1"}));
    EXPECT_EQ(told, (Texts{"alive", "alive"}));
    EXPECT_TRUE(is_right("", ""));
    EXPECT_EQ(server.calls_of("read"), Texts{"read file 0 1"});
}

TEST_F(CompareTest, CheckOfAFileWithoutAnEndIsOver) {
    server.spoil_read = [this](const std::string&, std::string& bytes) {
        if (server.calls_of("read").size() > 100) throw std::runtime_error("it goes on for ever");
        bytes.resize(static_cast<std::size_t>(CHUNK_SIZE), 'x');
    };
    EXPECT_FALSE(is_right("", ""));
    EXPECT_EQ(server.calls_of("read").size(), 1U);
    EXPECT_FALSE(is_right(content_of(CHUNK_SIZE - 1), content_of(CHUNK_SIZE - 1)));
    EXPECT_EQ(server.calls_of("read").size(), 2U);
    EXPECT_FALSE(is_right(content_of(2 * CHUNK_SIZE), content_of(2 * CHUNK_SIZE)));
    EXPECT_EQ(server.calls_of("read").size(), 3U);
}

TEST_F(CompareTest, CheckOfABeginningLeavesTheRestAlone) {
    write_source(content);
    server.put("file", spoilt(content, 2 * CHUNK_SIZE));
    CopyState state = new_state();
    const auto file = share.open("file", Share::Open::read);
    EXPECT_TRUE(reads_back(*file, 2 * CHUNK_SIZE, state));
    EXPECT_FALSE(reads_back(*file, 2 * CHUNK_SIZE + 1, state));
    server.calls.clear();
    EXPECT_TRUE(reads_back(*file, 0, state));
    EXPECT_TRUE(server.calls.empty());
}

}  // namespace
