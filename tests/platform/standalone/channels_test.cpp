// What the stand-alone recorder tells of its channels: settings, live states, removed ones.
#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>

#include "backup/task_record.h"
#include "platform/nvrcfg.h"
#include "platform/rec_state.h"
#include "platform/standalone/store/channel_store.h"
#include "platform/utilities.h"
#include "platform/vesk_storage.h"
#include "tests/platform/standalone/set_clock.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

constexpr std::time_t NOW = 1'750'000'000;  // a day behind those that are recorded

class Channels : public StateTest {
protected:
    Channels() {
        setenv("TZ", "UTC0", 1);  // some zones have put their clocks on for good in 2023
        tzset();
        set_clock = static_cast<unsigned long long>(NOW) * 1000;
    }
    ~Channels() override {
        set_clock = 0;
        unsetenv("TZ");
    }

    void add(int index, const std::string& guid, int streams, const std::string& recordings = "") {
        Channel channel;
        channel.index = index;
        channel.guid = guid;
        channel.ip = "10.0.0.1";
        channel.name = "Näme of " + guid;
        channel.brand = "brand";
        channel.model = "model";
        channel.streams = streams;
        channel.recordings = recordings;
        ASSERT_TRUE(store_.add(channel));
    }

    void remove(int index) { ASSERT_TRUE(store_.remove(index)); }

    static std::string settings(bool with_removed, int first) {
        std::string encoded;
        std::string text;
        EXPECT_EQ(cfgsvc_get_channel_setting(with_removed, first, encoded), 0);
        EXPECT_EQ(b64_decode_v2(encoded, text), 0);
        return text;
    }

    /// The state text; the states go to states_.
    std::string read_states(int max = VESK_MAX_CHANNELS) {
        std::string text(REC_STATE_TEXT_SIZE, 'x');
        states_.assign(static_cast<std::size_t>(max) + 1, TChannelStatus{{99, 99}});
        EXPECT_EQ(nvr_rec_state_read(text.data(), count_, states_.data(), max, nullptr), 0);
        EXPECT_EQ(states_.back().stream_state[0], 99) << "written behind the end";
        return text.c_str();
    }

    std::string record(const std::string& name, int seconds_ago) const {
        const std::string folder = state_.folder() + "/" + name;
        const std::time_t written = NOW - seconds_ago;
        const std::string file = folder + "/2024-01-01/00-00-00.mp4";
        write_file(file, "x");
        const timespec times[2] = {{written, 0}, {written, 0}};
        EXPECT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
        return folder;
    }

    Database config_{config_database_path(), Database::Access::writing};
    ChannelStore store_{config_};
    std::vector<TChannelStatus> states_;
    int count_ = -1;
};

constexpr char NO_CHANNELS[] = R"({"datas":[]})";

std::string described(int index, const std::string& guid, const std::string& streams) {
    return R"({"channel_index":)" + std::to_string(index) + R"(,"guid":")" + guid +
           R"(","ip":"10.0.0.1","name":"Näme of )" + guid + R"(","brand":"brand","model":"model")" +
           streams + "}";
}

TEST_F(Channels, HaveTheirSettingsInOneObject) {
    EXPECT_EQ(settings(false, 0), NO_CHANNELS);
    add(2, "b", 0);
    add(1, "a", 2);
    ASSERT_TRUE(store_.pin_state(1, {7}));
    EXPECT_EQ(settings(false, 0), R"({"datas":[)" + described(1, "a", R"(,"stream_state":[7,4])") +
                                      "," + described(2, "b", "") + "]}");
}

TEST_F(Channels, AreLeftOutBelowTheFirstAndWhenRemoved) {
    add(1, "a", 0);
    add(2, "b", 0);
    remove(2);
    EXPECT_EQ(settings(false, 1), R"({"datas":[)" + described(1, "a", "") + "]}");
    EXPECT_EQ(settings(false, 2), NO_CHANNELS);
    EXPECT_EQ(settings(true, 2), R"({"datas":[)" + described(2, "b", "") + "]}");
}

TEST_F(Channels, HaveStatesAsOneLineOfText) {
    add(3, "fresh", 2, record("fresh", 0));
    add(1, "none", 0);
    EXPECT_EQ(read_states(), R"([{"channel_index":1,"stream_state":[7]},)"
                             R"({"channel_index":3,"stream_state":[0,0]}])");
    EXPECT_EQ(count_, 2);
    EXPECT_EQ(states_[3].stream_state[1], STREAM_CONNECTED);
    EXPECT_EQ(states_[3].stream_state[2], STREAM_IDLE);
    EXPECT_EQ(states_[2].stream_state[0], STREAM_IDLE);
    EXPECT_EQ(states_[1].stream_state[0], STREAM_DISCONNECTED);
}

TEST_F(Channels, AreConnectedForTenMinutesAfterARecording) {
    add(1, "a", 1, record("just fresh", 599));
    add(2, "b", 1, record("just stale", 600));
    add(3, "c", 1, record("a little ahead", -599));
    add(4, "d", 1, record("far ahead", -600));
    read_states();
    EXPECT_EQ(states_[1].stream_state[0], STREAM_CONNECTED);
    EXPECT_EQ(states_[2].stream_state[0], STREAM_DISCONNECTED);
    EXPECT_EQ(states_[3].stream_state[0], STREAM_CONNECTED);
    EXPECT_EQ(states_[4].stream_state[0], STREAM_DISCONNECTED);
}

TEST_F(Channels, HaveNoStateWhenRemovedOrBeyondTheArray) {
    add(1, "a", 1);
    add(2, "b", 1);
    add(5, "c", 1);
    remove(1);
    EXPECT_EQ(read_states(3), R"([{"channel_index":2,"stream_state":[7]}])");
    EXPECT_EQ(count_, 1);
    EXPECT_EQ(states_[1].stream_state[0], STREAM_IDLE);
}

TEST_F(Channels, HaveSixteenPinnedStatesAtMost) {
    add(1, "a", 16);
    ASSERT_TRUE(store_.pin_state(1, std::vector<int>(20, 3)));
    read_states();
    EXPECT_EQ(states_[1].stream_state[15], 3);
    EXPECT_EQ(states_[2].stream_state[0], STREAM_IDLE);
}

TEST_F(Channels, AreListedWhenRemovedWithWhatTheyLeft) {
    write_file(state_.folder() + "/r/2024-01-01/10-00-00.mp4", "12345");
    write_file(state_.folder() + "/r/2024-01-01/alarm/10-00-00.mp4", "123");
    add(1, "live", 1);
    add(9, "gone", 1, state_.folder() + "/r");
    remove(9);
    CVeskStorage storage;
    IStorageSetting* setting = nullptr;
    ASSERT_EQ(storage.create_storage_setting(&setting), 0);
    std::list<TRemovedChannelInfo> removed(1);
    ASSERT_EQ(setting->get_channel_config_list(removed, VESK_REMOVED_CHANNELS), 0);
    ASSERT_EQ(removed.size(), 2U);
    EXPECT_EQ(removed.back().channel_index, 9);
    EXPECT_EQ(removed.back().uuid, "gone");
    EXPECT_EQ(removed.back().display_name, "Näme of gone");
    EXPECT_EQ(removed.back().primary_size, 5);
    EXPECT_EQ(removed.back().secondary_size, 3);
    for (const int selector : {0, 1, 3})
        EXPECT_NE(setting->get_channel_config_list(removed, selector), 0) << selector;
    EXPECT_EQ(removed.size(), 2U);
    EXPECT_EQ(storage.destroy_storage_setting(&setting), 0);
    EXPECT_NE(storage.destroy_storage_setting(nullptr), 0);
}

TEST_F(Channels, OfAStoreThatIsNotThereAreUnknown) {
    CVeskStorage storage;
    IStorageSetting* setting = nullptr;
    ASSERT_EQ(storage.create_storage_setting(&setting), 0);
    setenv("RECORDER_STATE", "/nonexistent", 1);
    std::string text = "before";
    EXPECT_EQ(cfgsvc_get_channel_setting(false, 0, text), NVRCFG_UNAVAILABLE);
    EXPECT_EQ(text, "before");
    std::list<TRemovedChannelInfo> removed(1);
    EXPECT_NE(setting->get_channel_config_list(removed, VESK_REMOVED_CHANNELS), 0);
    EXPECT_EQ(removed.size(), 1U);
    EXPECT_EQ(storage.destroy_storage_setting(&setting), 0);
}

TEST_F(Channels, DaysOfThoseThatSharedAnIndexAddUpWhicheverIsOlder) {
    write_file(state_.folder() + "/new/2024-01-02/10-00-00.mp4", "x");
    write_file(state_.folder() + "/old/2023-01-02/alarm/10-00-00.mp4", "x");
    for (const bool old_first : {true, false}) {
        add(5, old_first ? "a" : "c", 1, state_.folder() + (old_first ? "/old" : "/new"));
        remove(5);
        add(5, old_first ? "b" : "d", 1, state_.folder() + (old_first ? "/new" : "/old"));
        std::vector<int> normal(VESK_MAX_CHANNELS);
        std::vector<int> alarm(VESK_MAX_CHANNELS);
        std::vector<long long> earliest(VESK_MAX_CHANNELS);
        std::vector<long long> latest(VESK_MAX_CHANNELS);
        ASSERT_EQ(get_storage_days(normal.data(), alarm.data(), earliest.data(), latest.data()), 0);
        EXPECT_EQ(latest[5] - earliest[5], 365LL * 24 * 3600 * 1000);
        EXPECT_EQ(normal[5], old_first ? 1 : 2);
        EXPECT_EQ(alarm[5], old_first ? 1 : 2);
        remove(5);
    }
}

class NoStore : public ::testing::Test {
protected:
    NoStore() { setenv("RECORDER_STATE", "/nonexistent", 1); }
    ~NoStore() override { unsetenv("RECORDER_STATE"); }
};

TEST_F(NoStore, IsToldByEveryCallOfTheConfigurationStore) {
    std::list<TDataBackupConfig> tasks(1);
    EXPECT_EQ(__nvrcfg_get_rr_settings("test", 1, tasks), NVRCFG_UNAVAILABLE);
    EXPECT_EQ(tasks.size(), 1U);
    EXPECT_EQ(__nvrcfg_set_rr_settings("test", 1, R"({"taskName": "n"})"), NVRCFG_UNAVAILABLE);
    std::string value = "before";
    int error = 0;
    EXPECT_NE(__nvrcfg_get_key_value("test", 1, "fuse", "fuse_enabled", value, &error), 0);
    EXPECT_EQ(error, NVRCFG_UNAVAILABLE);
    EXPECT_NE(__nvrcfg_get_key_value("test", 1, "fuse", "fuse_enabled", value, nullptr), 0);
    EXPECT_EQ(value, "before");
}

}  // namespace
