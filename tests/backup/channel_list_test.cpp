// Tests of the channel list: configured cameras, their states and oldest recordings, removed ones.
#include <climits>
#include <iterator>

#include "backup/recording_backup_function.h"
#include "backup/stream_state.h"
#include "cgi/result_code.h"
#include "tests/support/fake_platform/platform_test.h"

namespace {

using Calls = std::vector<fake::Call>;

constexpr char FAILED[] = "Get Channel List Fail.";
constexpr char EMPTY[] = R"({ "ret_code": 0, "mesg": "Success.", "channel_list": [ ] })";

const std::string CONNECTED = "NVR_CAM_CONNECTED";
const std::string IN_ERROR = "NVR_CAM_CONNECTION_ERROR";
const std::string CONNECTING = "NVR_CAM_CONNECTING";
const std::string IDLE = "NVR_CAM_CONNECT_IDLE";
const std::string DISCONNECTED = "NVR_CAM_DISCONNECTED";
const std::string UNDEFINED = "NVR_CAM_UNDEFINE";

const fake::Call READ_SETTINGS = {"cfgsvc_get_channel_setting", {"false", "0"}};
const fake::Call READ_STATE = {"nvr_rec_state_read", {"128", "(null)"}};
const fake::Call READ_DAYS = {"get_storage_days", {}};
const fake::Call CREATE = {"create_storage_setting", {}};
const fake::Call LIST = {"get_channel_config_list", {"2"}};
const fake::Call RELEASE = {"destroy_storage_setting", {"setting"}};

/// Seconds that sleep() was called with; the linker puts a counter in its place.
std::vector<unsigned> pauses;

/// One channel's settings. `streams` is what follows "stream_state", "" for no such member.
std::string settings(const std::string& index, const std::string& streams,
                     const std::string& brand = "Acme", const std::string& model = "X1") {
    return R"({"channel_index": )" + index + R"(, "guid": "G)" + index + R"(", "ip": "192.0.2.)" +
           index + R"(", "name": "Camera )" + index + R"(", "brand": ")" + brand +
           R"(", "model": ")" + model + '"' +
           (streams.empty() ? "" : R"(, "stream_state": )" + streams) + "}";
}

/// What the reply says of such a channel.
std::string entry(const std::string& index, const std::string& status,
                  const std::string& date = "1970-01-01", const std::string& seconds = "0",
                  const std::string& brand = "Acme", const std::string& model = "X1") {
    return R"({ "earlyest_local_time": ")" + date + R"(", "earlyest_utc_times": )" + seconds +
           R"(, "guid": "G)" + index + R"(", "channel_index": )" + index + R"(, "ip": "192.0.2.)" +
           index + R"(", "name": "Camera )" + index + R"(", "brand": ")" + brand +
           R"(", "model": ")" + model + R"(", "connection_status": ")" + status + R"(" })";
}

std::string removed_entry(const std::string& index, const std::string& uuid,
                          const std::string& name, const std::string& date = "1970-01-01",
                          const std::string& seconds = "0") {
    return R"({ "earlyest_local_time": ")" + date + R"(", "earlyest_utc_times": )" + seconds +
           R"(, "guid": ")" + uuid + R"(", "channel_index": )" + index +
           R"(, "ip": "--", "name": ")" + name +
           R"(", "brand": "--", "model": "--", "connection_status": "NVR_CAM_REMOVED" })";
}

std::string joined(const Strings& texts) {
    std::string all;
    for (const std::string& text : texts) all += (all.empty() ? "" : ", ") + text;
    return all;
}

std::string list_of(const Strings& entries) {
    return R"({ "ret_code": 0, "mesg": "Success.", "channel_list": [ )" + joined(entries) + " ] }";
}

class ChannelList : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        pauses.clear();
    }

    static void configure(const Strings& channels) {
        fake::platform.channel_settings = R"({"datas": [)" + joined(channels) + "]}";
    }

    /// States of the streams of channel `index`; its other streams are idle, as is every other
    /// channel.
    static void set_states(int index, const std::vector<int>& states) {
        auto& all = fake::platform.channel_states;
        TChannelStatus idle;
        std::fill(std::begin(idle.stream_state), std::end(idle.stream_state), 4);
        all.resize(VESK_MAX_CHANNELS, idle);
        std::copy(states.begin(), states.end(), all[static_cast<std::size_t>(index)].stream_state);
    }

    static void record(int index, int normal, int alarm, long long earliest) {
        fake::platform.normal_days[index] = normal;
        fake::platform.alarm_days[index] = alarm;
        fake::platform.earliest[index] = earliest;
    }

    static void remove(int index, const std::string& uuid, long long primary, long long secondary) {
        fake::platform.removed_channels.push_back({index, uuid, "Gone", primary, secondary});
    }

    std::string list(int wanted = 0) {
        json_object* reply = nullptr;
        EXPECT_EQ(get_channel_list(&reply), wanted);
        EXPECT_NE(reply, nullptr);
        return reply == nullptr ? "" : printed(reply);
    }

    /// The one configured channel's status.
    std::string status_of(const std::string& streams, const std::vector<int>& states) {
        fake::reset();
        configure({settings("0", streams)});
        set_states(0, states);
        const std::string reply = list();
        const std::string key = R"("connection_status": ")";
        const std::size_t begin = reply.find(key) + key.size();
        return reply.substr(begin, reply.find('"', begin) - begin);
    }
};

// --- the whole -----------------------------------------------------------------------------------

TEST_F(ChannelList, NothingConfiguredAndNothingRemovedIsAnEmptyList) {
    EXPECT_EQ(list(), EMPTY);
    EXPECT_EQ(fake::effects(),
              (Calls{READ_SETTINGS, READ_STATE, READ_DAYS, CREATE, LIST, RELEASE}));
    EXPECT_EQ(fake::debug_texts(), Strings{});
    EXPECT_TRUE(pauses.empty());
}

TEST_F(ChannelList, LiveChannelsStandInSettingsOrderThenRemovedOnesInTheStoragesOrder) {
    configure({settings("7", "[{}]"), settings("2", "[{}]")});
    set_states(7, {1});
    set_states(2, {0});
    record(7, 1, 0, 1700000000999);
    record(9, 0, 3, 1600000000000);
    remove(9, "u9", 1, 0);
    remove(4, "u4", 0, 5);
    EXPECT_EQ(list(),
              list_of({entry("7", IN_ERROR, "2023-11-14", "1700000000"), entry("2", CONNECTED),
                       removed_entry("9", "u9", "Gone", "2020-09-13", "1600000000"),
                       removed_entry("4", "u4", "Gone")}));
}

TEST_F(ChannelList, EmptyDatasLeavesTheRemovedChannels) {
    remove(3, "u3", 1, 1);
    EXPECT_EQ(list(), list_of({removed_entry("3", "u3", "Gone")}));
}

TEST_F(ChannelList, OldestRecordingIsALocalDayAndWholeSeconds) {
    const struct {
        const char* zone;
        long long milliseconds;
        const char* date;
        const char* seconds;
    } rows[] = {
        {"UTC0", 1709251199999, "2024-02-29", "1709251199"},
        {"UTC0", 1709251200000, "2024-03-01", "1709251200"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1709247599999, "2024-02-29", "1709247599"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1709247600000, "2024-03-01", "1709247600"},
        // Midnight of a summer day is an hour earlier.
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1719784800000, "2024-07-01", "1719784800"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1719784799000, "2024-06-30", "1719784799"},
        {"UTC0", 4102444800000, "2100-01-01", "4102444800"},  // beyond 32 bits
        {"UTC0", 999, "1970-01-01", "0"},
    };
    for (const auto& row : rows) {
        fake::reset();
        set_zone(row.zone);
        configure({settings("0", "[]")});
        set_states(0, {0});
        record(0, 1, 0, row.milliseconds);
        EXPECT_EQ(list(), list_of({entry("0", CONNECTED, row.date, row.seconds)}));
    }
}

TEST_F(ChannelList, TextsAreCutToTheBuffersOfTheRecorder) {
    const auto member = [](const std::string& key, std::size_t length, char letter) {
        return ", \"" + key + "\": \"" + std::string(length, letter) + '"';
    };
    configure({R"({"channel_index": 1)" + member("guid", 40, 'g') + member("ip", 40, 'i') +
               member("name", 600, 'n') + member("brand", 600, 'b') + member("model", 600, 'm') +
               R"(, "stream_state": []})"});
    const std::string reply = list();
    EXPECT_NE(reply.find('"' + std::string(33, 'g') + '"'), std::string::npos);
    EXPECT_NE(reply.find('"' + std::string(31, 'i') + '"'), std::string::npos);
    for (const char letter : {'n', 'b', 'm'})
        EXPECT_NE(reply.find('"' + std::string(511, letter) + '"'), std::string::npos) << letter;
}

TEST_F(ChannelList, TextsOfAnyKindSurviveThePrintingAndParsing) {
    configure(
        {R"({"channel_index": 0, "guid": "a\"b", "ip": "\\", "name": "Hof \u00fc \ud83d\ude00 /",
               "brand": "\n\t\u0001", "model": "", "stream_state": [{}]})"});
    const std::string reply = list();
    EXPECT_NE(reply.find(R"("guid": "a\"b")"), std::string::npos) << reply;
    EXPECT_NE(reply.find(R"("ip": "\\")"), std::string::npos) << reply;
    EXPECT_NE(reply.find("\"name\": \"Hof \u00fc \U0001F600 \\/\""), std::string::npos) << reply;
    EXPECT_NE(reply.find(R"("brand": "\n\t\u0001")"), std::string::npos) << reply;
}

TEST_F(ChannelList, UnknownMembersOfTheSettingsAreNotPassedOn) {
    configure({R"({"extra": 1, "password": "secret", )" + settings("0", "[]").substr(1)});
    EXPECT_EQ(list(), list_of({entry("0", IDLE)}));
}

// --- connection status ---------------------------------------------------------------------------

TEST_F(ChannelList, EachStateHasItsText) {
    const std::string texts[] = {CONNECTED, IN_ERROR,  CONNECTED, CONNECTING,
                                 IDLE,      CONNECTED, CONNECTED, DISCONNECTED};
    for (int state = 0; state < 8; ++state) {
        EXPECT_EQ(status_of("[{}]", {state}), texts[state]) << state;
        EXPECT_EQ(status_of("[]", {state}), texts[state]) << state;
    }
    for (const int state : {8, 9, INT_MAX, -1, INT_MIN}) {
        EXPECT_EQ(status_of("[{}]", {state}), IDLE) << state;
        EXPECT_EQ(status_of("[]", {state}), IDLE) << state;
    }
}

TEST_F(ChannelList, StatesOfSeveralStreamsFoldInStreamOrder) {
    const struct {
        std::vector<int> states;
        std::string status;
    } rows[] = {
        {{4, 7}, DISCONNECTED}, {{7, 0}, CONNECTED},       {{1, 0}, IN_ERROR},
        {{4, 4}, IDLE},         {{4, 3}, CONNECTING},      {{7, 2}, CONNECTED},
        {{7, 5}, CONNECTED},    {{7, 6}, CONNECTED},       {{7, 1}, DISCONNECTED},
        {{7, 3}, DISCONNECTED}, {{7, 4}, DISCONNECTED},    {{7, 7}, DISCONNECTED},
        {{7, 9}, DISCONNECTED}, {{0, 7}, CONNECTED},       {{3, 0}, CONNECTING},
        {{9, 0}, IDLE},         {{4, 7, 0}, CONNECTED},    {{4, 4, 1, 7}, IN_ERROR},
        {{7, 0, 1}, CONNECTED}, {{4, 7, 3, 6}, CONNECTED}, {{7, 1, 4, 2}, CONNECTED},
    };
    for (const auto& row : rows) {
        std::string streams;
        for (const int state : row.states)
            streams += (streams.empty() ? "[" : ",") + std::to_string(state);
        EXPECT_EQ(status_of(streams + "]", row.states), row.status) << streams;
    }
}

TEST_F(ChannelList, OnlyAsManyStreamsCountAsTheSettingsHave) {
    EXPECT_EQ(status_of("[0]", {7, 0}), DISCONNECTED);
    EXPECT_EQ(status_of("[0, 0]", {7, 0}), CONNECTED);
    EXPECT_EQ(status_of("[0, 0]", {4, 4, 0}), IDLE);
}

TEST_F(ChannelList, WhatTheSettingsSayOfAStreamDoesNotCount) {
    EXPECT_EQ(status_of(R"([null, "x", {"state": 7}])", {0}), CONNECTED);
}

TEST_F(ChannelList, MoreStreamsThanAChannelCanHaveAreNotReadPastTheRecord) {
    std::string streams = "[0";
    for (int stream = 1; stream < 1000; ++stream) streams += ",0";
    configure({settings("127", streams + "]")});
    set_states(127, std::vector<int>(REC_STATE_MAX_STREAMS, 4));
    EXPECT_EQ(list(), list_of({entry("127", IDLE)}));
}

TEST_F(ChannelList, StateIsThatOfTheRecordAtTheChannelsIndex) {
    configure({settings("127", "[0]"), settings("0", "[0]"), settings("5", "[]")});
    set_states(0, {1});
    set_states(5, {3});
    set_states(127, {7});
    EXPECT_EQ(list(),
              list_of({entry("127", DISCONNECTED), entry("0", IN_ERROR), entry("5", CONNECTING)}));
}

TEST_F(ChannelList, WithoutStateEveryChannelWithStreamStatesIsIdle) {
    fake::fail("nvr_rec_state_read", -1);
    configure({settings("0", "[0]"), settings("1", "[]"), settings("2", "[]", "", "")});
    set_states(0, {0});
    EXPECT_EQ(list(), list_of({entry("0", IDLE), entry("1", IDLE),
                               entry("2", IDLE, "1970-01-01", "0", "", "")}));
}

TEST_F(ChannelList, WithoutStreamsAnEmptyBrandOrModelIsUndefinedWhateverTheState) {
    for (const int state : {0, 1, 4, 7, 9}) {
        fake::reset();
        configure({settings("0", "[]", "", "X1"), settings("0", "[]", "Acme", ""),
                   settings("0", "[]", "", ""), settings("0", "[]", " ", "0")});
        set_states(0, {state});
        const std::string known(connection_status_text(state));
        EXPECT_EQ(list(), list_of({entry("0", UNDEFINED, "1970-01-01", "0", "", "X1"),
                                   entry("0", UNDEFINED, "1970-01-01", "0", "Acme", ""),
                                   entry("0", UNDEFINED, "1970-01-01", "0", "", ""),
                                   entry("0", known, "1970-01-01", "0", " ", "0")}));
    }
}

TEST_F(ChannelList, WithStreamsAnEmptyBrandOrModelMakesNoDifference) {
    configure({settings("0", "[0]", "", "")});
    set_states(0, {0});
    EXPECT_EQ(list(), list_of({entry("0", CONNECTED, "1970-01-01", "0", "", "")}));
}

// --- the status of a channel without stream states -----------------------------------------------

TEST_F(ChannelList, WithoutStreamStatesTheStatusBeforeIsRepeated) {
    configure({settings("0", "[0]"), settings("1", ""), settings("2", ""), settings("3", "[0]"),
               settings("4", "")});
    set_states(0, {1});
    set_states(1, {0});
    set_states(3, {7});
    EXPECT_EQ(list(), list_of({entry("0", IN_ERROR), entry("1", IN_ERROR), entry("2", IN_ERROR),
                               entry("3", DISCONNECTED), entry("4", DISCONNECTED)}));
}

TEST_F(ChannelList, FirstChannelWithoutStreamStatesRepeatsTheLastDateOfTheDebugLines) {
    configure({settings("0", ""), settings("1", ""), settings("2", "[0]"), settings("3", "")});
    set_states(2, {0});
    record(0, 1, 0, 1700000000000);
    record(90, 0, 1, 1600000000000);
    EXPECT_EQ(list(),
              list_of({entry("0", "2020-09-13", "2023-11-14", "1700000000"),
                       entry("1", "2020-09-13"), entry("2", CONNECTED), entry("3", CONNECTED)}));
}

TEST_F(ChannelList, FirstChannelWithoutStreamStatesAndRecordingsHasAnEmptyStatus) {
    configure({settings("0", "")});
    set_states(0, {0});
    EXPECT_EQ(list(), list_of({entry("0", "")}));
}

// --- indexes outside the tables ------------------------------------------------------------------

TEST_F(ChannelList, IndexOutsideTheTablesCountsAsNoRecordingsAndNoState) {
    for (const char* index : {"-1", "128", "129", "2147483647", "-2147483648"}) {
        fake::reset();
        configure({settings(index, "[0]"), settings(index, "[]"), settings(index, "[]", "", "")});
        set_states(0, {0});
        set_states(127, {0});
        record(0, 1, 1, 1700000000000);
        record(127, 1, 1, 1700000000000);
        remove(atoi(index), "u", 1, 0);
        EXPECT_EQ(list(), list_of({entry(index, IDLE), entry(index, IDLE),
                                   entry(index, IDLE, "1970-01-01", "0", "", ""),
                                   removed_entry(index, "u", "Gone")}))
            << index;
    }
}

// --- recording state and days --------------------------------------------------------------------

TEST_F(ChannelList, StateThatCannotBeReadIsAskedForOnceMoreAfterASecond) {
    fake::fail("nvr_rec_state_read", -1, 1);
    configure({settings("0", "[0]")});
    set_states(0, {0});
    EXPECT_EQ(list(), list_of({entry("0", CONNECTED)}));
    EXPECT_EQ(pauses, std::vector<unsigned>{1});
    EXPECT_EQ(fake::effects(),
              (Calls{READ_SETTINGS, READ_STATE, READ_STATE, READ_DAYS, CREATE, LIST, RELEASE}));
}

TEST_F(ChannelList, StateThatCannotBeReadTwiceIsNotAskedForAgainAndNoError) {
    fake::fail("nvr_rec_state_read", 5);
    EXPECT_EQ(list(), EMPTY);
    EXPECT_EQ(pauses, std::vector<unsigned>{1});
    EXPECT_EQ(fake::calls_of("nvr_rec_state_read"), (Calls{READ_STATE, READ_STATE}));
}

TEST_F(ChannelList, DaysAreLoggedForChannelsThatHaveAny) {
    set_zone("CET-1CEST,M3.5.0,M10.5.0/3");
    record(0, 2, 0, 1709247600000);
    record(5, 0, 0, 1700000000000);
    record(127, 0, 3, 1719784799999);
    EXPECT_EQ(list(), EMPTY);
    Strings wanted = {
        "(read_days) ch-0 normal_rec_days=2 alarm_rec_days=0 earlyest_ts=1709247600000 "
        "localt=[2024-03-01]\n",
        "(read_days) ch-127 normal_rec_days=0 alarm_rec_days=3 earlyest_ts=1719784799999 "
        "localt=[2024-06-30]\n"};
    EXPECT_EQ(fake::debug_texts(), wanted);
}

TEST_F(ChannelList, DaysThatCannotBeReadCountAsNone) {
    fake::fail("get_storage_days", -1);
    configure({settings("0", "[0]")});
    set_states(0, {0});
    record(0, 1, 1, 1700000000000);
    EXPECT_EQ(list(), list_of({entry("0", CONNECTED)}));
}

// --- removed channels ----------------------------------------------------------------------------

TEST_F(ChannelList, RemovedChannelWithoutRecordingsIsLoggedAndLeftOut) {
    remove(1, "u1", 0, 0);
    remove(2, "u2", 1, 0);
    remove(3, "u3", 0, 1);
    record(2, 1, 0, 1700000000000);
    EXPECT_EQ(list(), list_of({removed_entry("2", "u2", "Gone", "2023-11-14", "1700000000"),
                               removed_entry("3", "u3", "Gone")}));
    const Strings said = fake::debug_texts();
    ASSERT_EQ(said.size(), 4U);
    for (const char* fact : {"1", "u1", "Gone"})
        EXPECT_NE(said[1].find(fact), std::string::npos) << said[1];
    for (const char* fact : {"2", "u2", "Gone", "1", "0", "1700000000000"})
        EXPECT_NE(said[2].find(fact), std::string::npos) << said[2];
}

// --- failures ------------------------------------------------------------------------------------

TEST_F(ChannelList, SettingsThatCannotBeReadEndTheOperationAtOnce) {
    fake::fail("cfgsvc_get_channel_setting", 2);
    EXPECT_EQ(list(CGI_GET_CHANNEL_LIST_FAIL), error_reply("2500460551.0", FAILED));
    EXPECT_EQ(fake::effects(), Calls{READ_SETTINGS});
    EXPECT_EQ(fake::debug_texts(), (Strings{"parser_task fail\n", "error code = 2500460551\n"}));
}

TEST_F(ChannelList, MissingOrWronglyTypedMemberSpoilsTheReplyWhileTheStorageIsStillAsked) {
    const struct {
        const char* key;
        const char* wrong;
    } members[] = {{"channel_index", "\"0\""}, {"guid", "1"},  {"ip", "null"}, {"name", "[]"},
                   {"brand", "true"},          {"model", "{}"}};
    for (const auto& member : members) {
        const std::string whole = settings("0", "[0]");
        const std::string key = '"' + std::string(member.key) + '"';
        const std::size_t at = whole.find(key);
        const std::size_t value = at + key.size() + 2;
        const std::size_t end = whole.find_first_of(",}", value);
        std::string renamed = whole;
        renamed.insert(at + 1, "x");
        const std::string mistyped = whole.substr(0, value) + member.wrong + whole.substr(end);
        for (const std::string& broken : {renamed, mistyped}) {
            fake::reset();
            configure({settings("1", "[0]"), broken, settings("2", "[0]")});
            remove(9, "u9", 1, 0);
            EXPECT_EQ(list(CGI_PARSER_JSON_FAIL),
                      error_reply("2500460549.0", "Request Parser Fail."))
                << broken;
            EXPECT_EQ(fake::effects(),
                      (Calls{READ_SETTINGS, READ_STATE, READ_DAYS, CREATE, LIST, RELEASE}));
            const Strings said = fake::debug_texts();
            ASSERT_EQ(said.size(), 2U);
            EXPECT_EQ(said[0], "error code = 2500460549\n");
            EXPECT_NE(said[1].find("u9"), std::string::npos);
        }
    }
}

TEST_F(ChannelList, MembersAreReadInTheirOrderUpToTheMissingOne) {
    configure({R"({"channel_index": 0, "guid": "g", "ip": "i", "brand": "b", "model": "m"})",
               settings("1", "[]")});
    list(CGI_PARSER_JSON_FAIL);
    Strings keys;
    for (const fake::Call& call : fake::platform.calls)
        if (call.name.starts_with("comutil_get_json")) keys.push_back(call.args[0]);
    EXPECT_EQ(keys, (Strings{"channel_index", "guid", "ip", "name"}));
}

TEST_F(ChannelList, SettingsOfAnotherFormAreAParserFailure) {
    for (const char* text :
         {"", "null", "[]", "{}", R"({"datas": {}})", R"({"datas": 1})", R"({"datas": [null]})",
          R"({"datas": [1]})", R"({"datas": [[]]})", R"({"datas": [)", "no JSON", "\xff\xfe"}) {
        fake::reset();
        fake::platform.channel_settings = text;
        EXPECT_EQ(list(CGI_PARSER_JSON_FAIL), error_reply("2500460549.0", "Request Parser Fail."))
            << text;
        EXPECT_EQ(fake::effect_names().back(), "destroy_storage_setting") << text;
    }
}

TEST_F(ChannelList, SettingsThatAreNoBase64AreAParserFailure) {
    configure({settings("0", "[0]")});
    fake::fail("b64_decode_v2", -1);
    EXPECT_EQ(list(CGI_PARSER_JSON_FAIL), error_reply("2500460549.0", "Request Parser Fail."));
}

/// One way in which the storage fails, and what follows.
struct StorageFailure {
    const char* call;
    const char* said;
    Calls calls;
};

const StorageFailure STORAGE_FAILURES[] = {
    {"create_storage_setting", "Error veskstorage.create_storage_setting ret=-7\n", {CREATE}},
    {"get_channel_config_list",
     "Error storage_setting->get_channel_config_list ret=-7\n",
     {CREATE, LIST, RELEASE}},
    {"destroy_storage_setting",
     "Error veskstorage.destroy_storage_setting ret=-7\n",
     {CREATE, LIST, RELEASE}},
};

TEST_F(ChannelList, StorageThatCannotBeCreatedListedOrReleasedFailsTheOperation) {
    for (const StorageFailure& failure : STORAGE_FAILURES) {
        fake::reset();
        configure({settings("0", "[0]")});
        remove(9, "u9", 1, 0);
        fake::fail(failure.call, -7);
        EXPECT_EQ(list(CGI_GET_CHANNEL_LIST_FAIL), error_reply("2500460551.0", FAILED))
            << failure.call;
        Calls wanted = {READ_SETTINGS, READ_STATE, READ_DAYS};
        wanted.insert(wanted.end(), failure.calls.begin(), failure.calls.end());
        EXPECT_EQ(fake::effects(), wanted);
        EXPECT_EQ(fake::debug_texts(), (Strings{failure.said, "error code = 2500460551\n"}));
    }
}

TEST_F(ChannelList, StorageFailureReplacesAnEarlierParserFailure) {
    for (const StorageFailure& failure : STORAGE_FAILURES) {
        fake::reset();
        configure({"{}"});
        fake::fail(failure.call, -7);
        EXPECT_EQ(list(CGI_GET_CHANNEL_LIST_FAIL), error_reply("2500460551.0", FAILED))
            << failure.call;
        EXPECT_EQ(fake::debug_texts(), (Strings{"error code = 2500460549\n", failure.said,
                                                "error code = 2500460551\n"}));
    }
}

TEST_F(ChannelList, AnyOtherExceptionBecomesCode0AndNeverAListThatLacksChannels) {
    for (const char* call : {"cfgsvc_get_channel_setting", "nvr_rec_state_read", "get_storage_days",
                             "comutil_get_json_int_by_key", "create_storage_setting"}) {
        fake::reset();
        configure({settings("0", "[0]")});
        fake::throw_from(call);
        EXPECT_EQ(list(), error_reply("0.0", FAILED)) << call;
    }
}

// --- the fold by itself --------------------------------------------------------------------------

TEST(StreamState, FoldOfNoStreamsIsIdle) {
    EXPECT_EQ(fold_stream_states(nullptr, 0), 4);
}

TEST(StreamState, FoldKeepsEveryIndexButIdleAndDisconnected) {
    for (int first = -1; first < 10; ++first)
        for (int second = -1; second < 10; ++second) {
            const int states[] = {first, second};
            const bool better = second == 0 || second == 2 || second == 5 || second == 6;
            const int wanted = first == 4 || (first == 7 && better) ? second : first;
            EXPECT_EQ(fold_stream_states(states, 2), wanted) << first << ", " << second;
        }
}

}  // namespace

extern "C" unsigned __wrap_sleep(unsigned seconds) {
    pauses.push_back(seconds);
    return 0;
}
