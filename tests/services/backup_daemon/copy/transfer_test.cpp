// What goes to the share chunk by chunk, what the watcher hears of it, and what a check notices.
#include "services/backup_daemon/copy/transfer.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/copy/copy_fixture.h"

using namespace services;

namespace {

class TransferTest : public CopyFixture {
protected:
    /// Writes the source from `offset` on, behind a beginning that is there already.
    void write(long long size, long long offset = 0, bool hashed = true) {
        write_source(content_of(size));
        server.put("file", content_of(offset));
        server.calls.clear();
        told.clear();
        CopyState state = new_state(hashed);
        state.hash.add(content_of(offset).data(), static_cast<std::size_t>(offset));
        write_from(*share.open("file", Share::Open::write), offset, state);
        EXPECT_TRUE(server.files["file"] == content_of(size)) << size << " from " << offset;
        EXPECT_EQ(state.hash.hex(), hashed ? hash_of(content_of(size)) : "");
    }

    Texts checkpoints() const {
        Texts found;
        for (const std::string& one : told)
            if (one.starts_with("checkpoint")) found.push_back(one);
        return found;
    }

    static std::string checkpoint_at(long long offset) {
        return "checkpoint " + std::to_string(offset) + " " + hash_of(content_of(offset));
    }

    /// Whether the check takes what the share has for the source.
    bool is_right(const std::string& mine, const std::string& theirs) {
        write_source(mine);
        server.put("file", theirs);
        server.calls.clear();
        told.clear();
        CopyState state = new_state();
        state.hash.add(mine.data(), mine.size());
        return reads_back(*share.open("file", Share::Open::read), state);
    }
};

TEST_F(TransferTest, ChunksAreWholeUpToTheLast) {
    write(0);
    EXPECT_TRUE(server.calls_of("write").empty());
    write(1);
    EXPECT_EQ(server.calls_of("write"), Texts{"write file 0 1"});
    write(CHUNK_SIZE - 1);
    EXPECT_EQ(server.calls_of("write"), Texts{"write file 0 1048575"});
    write(CHUNK_SIZE);
    EXPECT_EQ(server.calls_of("write"), Texts{"write file 0 1048576"});
    write(CHUNK_SIZE + 1);
    EXPECT_EQ(server.calls_of("write"), (Texts{"write file 0 1048576", "write file 1048576 1"}));
}

TEST_F(TransferTest, WatcherHearsOfEveryChunkOnceItIsOnTheShare) {
    write(2 * MIB + 5);
    EXPECT_EQ(told, (Texts{"at 1048576", "at 2097152", "at 2097157"}));
    server.failure = PlannedFailure{.call = 2};
    EXPECT_THROW(write(2 * MIB + 5), CopyFailure);
    EXPECT_EQ(told, Texts{"at 1048576"});
}

TEST_F(TransferTest, GoesOnBehindWhatIsThere) {
    write(2 * MIB + 5, CHUNK_SIZE + 1);
    EXPECT_EQ(server.calls_of("write"),
              (Texts{"write file 1048577 1048576", "write file 2097153 4"}));
    EXPECT_EQ(told, (Texts{"at 2097153", "at 2097157"}));
    write(2 * MIB, 2 * MIB);
    EXPECT_TRUE(server.calls_of("write").empty());
    EXPECT_TRUE(told.empty());
}

TEST_F(TransferTest, CheckpointComesWithEveryEightMebibytes) {
    write(8 * MIB - 1);
    EXPECT_TRUE(checkpoints().empty());
    write(8 * MIB);
    EXPECT_EQ(checkpoints(), Texts{checkpoint_at(8 * MIB)});
    write(8 * MIB + 1);
    EXPECT_EQ(checkpoints(), Texts{checkpoint_at(8 * MIB)});
    write(17 * MIB);
    EXPECT_EQ(checkpoints(), (Texts{checkpoint_at(8 * MIB), checkpoint_at(16 * MIB)}));
}

TEST_F(TransferTest, CheckpointsAreCountedFromWhereTheWritingBegan) {
    write(12 * MIB, 3 * MIB + 1);
    EXPECT_EQ(checkpoints(), Texts{checkpoint_at(11 * MIB + 1)});
    write(12 * MIB, 4 * MIB + 1);
    EXPECT_TRUE(checkpoints().empty());
}

TEST_F(TransferTest, CheckpointIsToldAfterItsBytes) {
    write(8 * MIB);
    ASSERT_GE(told.size(), 2U);
    EXPECT_EQ(told[told.size() - 2], "at " + std::to_string(8 * MIB));
    EXPECT_EQ(told.back(), checkpoint_at(8 * MIB));
}

TEST_F(TransferTest, WithoutAWantedHashCheckpointsHaveNone) {
    write(9 * MIB, 0, false);
    EXPECT_EQ(checkpoints(), Texts{"checkpoint " + std::to_string(8 * MIB) + " "});
}

TEST_F(TransferTest, CheckTakesTheSourceAlone) {
    for (const long long size : {0LL, 1LL, CHUNK_SIZE - 1, CHUNK_SIZE, CHUNK_SIZE + 1, 2 * MIB + 5})
        EXPECT_TRUE(is_right(content_of(size), content_of(size))) << size;
}

TEST_F(TransferTest, CheckNoticesEveryByte) {
    const long long size = 2 * MIB + 5;
    const std::string content = content_of(size);
    for (const long long at : {0LL, CHUNK_SIZE - 1, CHUNK_SIZE, size - 1})
        EXPECT_FALSE(is_right(content, spoilt(content, at))) << at;
}

TEST_F(TransferTest, CheckNoticesMissingAndFurtherBytes) {
    for (const long long size : {CHUNK_SIZE, 2 * MIB + 5}) {
        EXPECT_FALSE(is_right(content_of(size), content_of(size - 1)));
        EXPECT_FALSE(is_right(content_of(size), content_of(size + 1)));
        EXPECT_FALSE(is_right(content_of(size), content_of(size) + std::string(1, '\0')));
        EXPECT_FALSE(is_right(content_of(size), ""));
    }
    EXPECT_FALSE(is_right("", "x"));
}

TEST_F(TransferTest, CheckReadsToTheEndAndTellsThatItIsAlive) {
    EXPECT_TRUE(is_right(content_of(CHUNK_SIZE + 1), content_of(CHUNK_SIZE + 1)));
    EXPECT_EQ(server.calls_of("read"), (Texts{"read file 0 1048576", "read file 1048576 1048576"}));
    EXPECT_EQ(told, (Texts{"alive", "alive"}));
    EXPECT_TRUE(is_right(content_of(CHUNK_SIZE), content_of(CHUNK_SIZE)));
    EXPECT_EQ(server.calls_of("read").size(), 2U) << "only a short read is the end";
}

TEST_F(TransferTest, CheckOfAFileWithoutAnEndIsOver) {
    server.spoil_read = [this](const std::string&, std::string& bytes) {
        if (server.calls_of("read").size() > 100) throw std::runtime_error("it goes on for ever");
        bytes.resize(static_cast<std::size_t>(CHUNK_SIZE), 'x');
    };
    EXPECT_FALSE(is_right("", ""));
    EXPECT_EQ(server.calls_of("read").size(), 1U);
    EXPECT_FALSE(is_right(content_of(CHUNK_SIZE - 1), content_of(CHUNK_SIZE - 1)));
    EXPECT_EQ(server.calls_of("read").size(), 1U);
    EXPECT_FALSE(is_right(content_of(2 * CHUNK_SIZE), content_of(2 * CHUNK_SIZE)));
    EXPECT_EQ(server.calls_of("read").size(), 3U);
}

}  // namespace
