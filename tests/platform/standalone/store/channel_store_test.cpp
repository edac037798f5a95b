// The channels, present and removed: who may have an index or a guid, and in what order they come.
#include "platform/standalone/store/channel_store.h"

#include "platform/standalone/store/connections.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

Channel channel(int index, const std::string& guid, int streams = 1) {
    return {.index = index,
            .guid = guid,
            .ip = "192.0.2.1",
            .name = "name of " + guid,
            .brand = "brand",
            .model = "model",
            .streams = streams,
            .recordings = "/" + guid,
            .removed = false,
            .pinned_state = {}};
}

class ChannelStoreTest : public StateTest {
protected:
    /// Index and guid of each, removed ones in brackets.
    std::string listed() {
        std::string text;
        for (const Channel& one : channels_.list()) {
            const std::string name = std::to_string(one.index) + one.guid;
            text += one.removed ? "(" + name + ")" : name;
        }
        return text;
    }

    Database database_{config_database_path(), Database::Access::writing};
    ChannelStore channels_{database_};
};

TEST_F(ChannelStoreTest, KeepsEveryFieldAsItWasGiven) {
    ASSERT_TRUE(channels_.add(channel(7, "g", 3)));
    const Channel stored = channels_.list().at(0);
    EXPECT_EQ(stored.index, 7);
    EXPECT_EQ(stored.guid, "g");
    EXPECT_EQ(stored.ip, "192.0.2.1");
    EXPECT_EQ(stored.name, "name of g");
    EXPECT_EQ(stored.brand, "brand");
    EXPECT_EQ(stored.model, "model");
    EXPECT_EQ(stored.streams, 3);
    EXPECT_EQ(stored.recordings, "/g");
    EXPECT_FALSE(stored.removed);
    EXPECT_FALSE(stored.pinned_state);
}

TEST_F(ChannelStoreTest, ComeByIndexTheLiveOneFirst) {
    for (const auto& [index, guid] : {std::pair(5, "a"), {0, "b"}, {127, "c"}})
        ASSERT_TRUE(channels_.add(channel(index, guid)));
    EXPECT_TRUE(channels_.remove(5));
    ASSERT_TRUE(channels_.add(channel(5, "d")));
    EXPECT_EQ(listed(), "0b5d(5a)127c");
}

TEST_F(ChannelStoreTest, IndexAndGuidOfALiveChannelAreTaken) {
    ASSERT_TRUE(channels_.add(channel(1, "a")));
    EXPECT_FALSE(channels_.add(channel(1, "b")));
    EXPECT_FALSE(channels_.add(channel(2, "a")));
    EXPECT_EQ(listed(), "1a");
}

TEST_F(ChannelStoreTest, NumbersOutOfRangeAreRefused) {
    EXPECT_FALSE(channels_.add(channel(-1, "a")));
    EXPECT_FALSE(channels_.add(channel(128, "a")));
    EXPECT_FALSE(channels_.add(channel(1, "a", -1)));
    EXPECT_FALSE(channels_.add(channel(1, "a", 17)));
    EXPECT_TRUE(channels_.add(channel(1, "a", 0)));
    EXPECT_TRUE(channels_.add(channel(2, "b", 16)));
}

TEST_F(ChannelStoreTest, RemovedChannelComesBackUnderItsGuid) {
    ASSERT_TRUE(channels_.add(channel(1, "a")));
    ASSERT_TRUE(channels_.remove(1));
    EXPECT_FALSE(channels_.remove(1));
    EXPECT_EQ(listed(), "(1a)");
    ASSERT_TRUE(channels_.add(channel(2, "a")));
    EXPECT_EQ(listed(), "2a");
}

TEST_F(ChannelStoreTest, RemovedChannelStaysWhenItCannotComeBack) {
    ASSERT_TRUE(channels_.add(channel(1, "a")));
    ASSERT_TRUE(channels_.remove(1));
    ASSERT_TRUE(channels_.add(channel(1, "b")));
    EXPECT_FALSE(channels_.add(channel(1, "a")));
    EXPECT_EQ(listed(), "1b(1a)");
}

TEST_F(ChannelStoreTest, ChannelsThatAreKeptAreThoseOfNow) {
    EXPECT_EQ(config_channels().size(), 0U);
    ASSERT_TRUE(channels_.add(channel(7, "g")));
    EXPECT_EQ(config_channels().size(), 1U);
    ASSERT_TRUE(channels_.remove(7));
    EXPECT_TRUE(config_channels().at(0).removed);
    ASSERT_TRUE(ChannelStore(config_for_writing()).add(channel(7, "g")));
    EXPECT_FALSE(config_channels().at(0).removed) << "changed by this thread's connection";
    {
        const TemporaryState other;
        EXPECT_EQ(config_channels().size(), 0U);
    }
    setenv("RECORDER_STATE", state_.folder().c_str(), 1);
    EXPECT_EQ(config_channels().size(), 1U);
}

TEST_F(ChannelStoreTest, StateIsPinnedOnLiveChannelsAlone) {
    ASSERT_TRUE(channels_.add(channel(1, "a")));
    ASSERT_TRUE(channels_.remove(1));
    EXPECT_FALSE(channels_.pin_state(1, {3}));
    ASSERT_TRUE(channels_.add(channel(1, "b")));
    ASSERT_TRUE(channels_.add(channel(2, "c")));
    EXPECT_TRUE(channels_.pin_state(1, {3, 0, 12}));
    const auto channels = channels_.list();
    EXPECT_EQ(channels.at(0).pinned_state, (std::vector<int>{3, 0, 12}));
    EXPECT_FALSE(channels.at(1).pinned_state);
    EXPECT_FALSE(channels.at(2).pinned_state);
    EXPECT_TRUE(channels_.pin_state(1, {}));
    EXPECT_FALSE(channels_.list().at(0).pinned_state);
}

}  // namespace
