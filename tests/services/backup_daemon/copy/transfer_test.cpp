// What goes to the share chunk by chunk, and what the watcher hears of it.
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
        EXPECT_TRUE(write_from(*share.open("file", Share::Open::write), offset, false, state));
        EXPECT_TRUE(server.files["file"] == content_of(size)) << size << " from " << offset;
        EXPECT_EQ(state.hash.hex(), hashed ? hash_of(content_of(size)) : "");
    }

    /// Writes three chunks, each of which is checked.
    bool write_checked() {
        write_source(content_of(2 * MIB + 5));
        server.put("file", "");
        server.calls.clear();
        told.clear();
        CopyState state = new_state();
        return write_from(*share.open("file", Share::Open::write), 0, true, state);
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

TEST_F(TransferTest, CheckedChunkIsReadBackBeforeTheNextIsSentAndTheEndIsLookedForAtLast) {
    EXPECT_TRUE(write_checked());
    EXPECT_EQ(server.calls,
              (Texts{"open write file", "write file 0 1048576", "read file 0 1048576",
                     "write file 1048576 1048576", "read file 1048576 1048576",
                     "write file 2097152 5", "read file 2097152 5", "read file 2097157 1"}));
    EXPECT_EQ(told, (Texts{"at 1048576", "at 2097152", "at 2097157"}));
}

TEST_F(TransferTest, CheckNoticesEveryByteThatIsSpoiltOnItsWay) {
    for (const std::size_t at : {0UL, CHUNK / 2, CHUNK - 1}) {
        server.spoil_write = [at](const std::string& call, std::string& bytes) {
            if (call == "write file 1048576 1048576") bytes[at] ^= 1;
        };
        EXPECT_FALSE(write_checked());
        EXPECT_EQ(told, Texts{"at 1048576"}) << "nothing that is wrong is told to be there";
        EXPECT_EQ(server.calls_of("write").size(), 2U) << "the rest is not sent for nothing";
    }
}

TEST_F(TransferTest, CheckNoticesMissingAndFurtherBytes) {
    server.spoil_write = [](const std::string& call, std::string& bytes) {
        if (call == "write file 2097152 5") bytes.pop_back();
    };
    EXPECT_FALSE(write_checked());
    server.spoil_write = [](const std::string& call, std::string& bytes) {
        if (call == "write file 2097152 5") bytes += 'x';
    };
    EXPECT_FALSE(write_checked());
    server.spoil_read = [](const std::string&, std::string& bytes) { bytes.clear(); };
    EXPECT_FALSE(write_checked());
}

TEST_F(TransferTest, CheckTakesAsLongAsTheSlowerWay) {
    using namespace std::chrono_literals;
    pace.ask([this] {
        now += 40ms;
        return 0;
    });
    server.before_call = [this](const std::string& call) {
        if (call.starts_with("read") && !call.ends_with(" 1")) now += 1s;
    };
    write_checked();
    EXPECT_EQ(server.calls_of("write")[1], "write file 1048576 1048581");
    EXPECT_EQ(pace.chunk(), 2 * CHUNK);
}

TEST_F(TransferTest, LongLineGetsLargerChunksOnceItsRateIsKnown) {
    using namespace std::chrono_literals;
    pace.ask([this] {
        now += 40ms;
        return 0;
    });
    write(11 * MIB);
    EXPECT_EQ(server.calls_of("write"),
              (Texts{"write file 0 1048576", "write file 1048576 4194304",
                     "write file 5242880 4194304", "write file 9437184 2097152"}));
    EXPECT_EQ(checkpoints(), Texts{checkpoint_at(9 * MIB)});
}

}  // namespace
