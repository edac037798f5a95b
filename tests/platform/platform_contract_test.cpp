// The contract of platform/*.h, held against every platform that the build knows.
#include <json-c/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "backup/task_record.h"
#include "platform/cgi_input.h"
#include "platform/comutil_json.h"
#include "platform/json_ptr.h"
#include "platform/nvrcfg.h"
#include "platform/private_mounts.h"
#include "platform/rec_state.h"
#include "platform/utilities.h"
#include "platform/vesk_storage.h"
#include "tests/platform/contract_fixture.h"

namespace {

using Segments = std::vector<std::string>;

class Platform : public ::testing::Test {
protected:
    contract::Recorder recorder_;
};

class Input {
public:
    Input() : input_(CGI_Get_Input_URL()) {}
    ~Input() { CGI_Free_Input(input_); }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    tagINPUT* get() const { return input_; }

private:
    tagINPUT* input_;
};

JsonPtr parsed(const char* text) {
    return JsonPtr(json_tokener_parse(text));
}

Segments split(std::string path) {
    Segments segments;
    const int appended = cgi_uri_token_paser(path.data(), &segments);
    EXPECT_EQ(appended, static_cast<int>(segments.size()));
    return segments;
}

TEST_F(Platform, DropsEmptyPathSegments) {
    EXPECT_EQ(split("/task/"), Segments{"task"});
    EXPECT_EQ(split("task"), Segments{"task"});
    EXPECT_EQ(split("//task"), Segments{"task"});
    EXPECT_EQ(split("/task/7/is_enable"), (Segments{"task", "7", "is_enable"}));
    EXPECT_TRUE(split("").empty());
    EXPECT_TRUE(split("///").empty());
}

TEST_F(Platform, LeavesPercentSignsInPathSegments) {
    EXPECT_EQ(split("/a%2Fb"), Segments{"a%2Fb"});
}

TEST_F(Platform, AppendsSegmentsToThoseThatAreThere) {
    Segments segments{"before"};
    char path[] = "/task";
    EXPECT_EQ(cgi_uri_token_paser(path, &segments), 1);
    EXPECT_EQ(segments, (Segments{"before", "task"}));
}

TEST_F(Platform, FindsParametersByTheirExactName) {
    recorder_.begin_request({{"isStop", "true"}, {"empty", ""}}, "admin", 11);
    const Input input;
    ASSERT_NE(input.get(), nullptr);
    ASSERT_NE(_CGI_Find_Parameter(input.get(), "isStop", 0), nullptr);
    EXPECT_STREQ(_CGI_Find_Parameter(input.get(), "isStop", 0)->name, "isStop");
    EXPECT_STREQ(_CGI_Find_Parameter(input.get(), "isStop")->value, "true");
    EXPECT_STREQ(_CGI_Find_Parameter(input.get(), "empty", "")->value, "");
    EXPECT_EQ(_CGI_Find_Parameter(input.get(), "isstop"), nullptr);
    EXPECT_EQ(_CGI_Find_Parameter(input.get(), "isSto"), nullptr);
    EXPECT_EQ(_CGI_Find_Parameter(nullptr, "isStop"), nullptr);
}

TEST_F(Platform, ReleasesNullInput) {
    EXPECT_NO_FATAL_FAILURE(CGI_Free_Input(nullptr));
}

TEST_F(Platform, AcceptsASessionOfTheLevelAskedFor) {
    recorder_.begin_request({}, "operator", 7);
    const Input input;
    t_ostra_auth_info info{};
    ASSERT_EQ(cgi_check_user_authentication_v3(input.get(), &info, 7), 0);
    EXPECT_STREQ(info.user, "operator");
    EXPECT_STREQ(info.user_name, "");
    EXPECT_EQ(info.level, 7U);
}

TEST_F(Platform, RefusesASessionBelowTheLevelAskedFor) {
    recorder_.begin_request({}, "operator", 10);
    const Input input;
    t_ostra_auth_info info{};
    EXPECT_NE(cgi_check_user_authentication_v3(input.get(), &info, 11), 0);
    EXPECT_NE(cgi_check_user_authentication_v3(nullptr, &info, 1), 0);
}

TEST_F(Platform, ReadsStringMembers) {
    const JsonPtr object = parsed(R"({"text": "abc", "number": 1})");
    char buffer[8] = "before";
    EXPECT_TRUE(comutil_get_json_str_by_key(object.get(), "text", buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "abc");
    EXPECT_FALSE(comutil_get_json_str_by_key(object.get(), "number", buffer, sizeof buffer));
    EXPECT_FALSE(comutil_get_json_str_by_key(object.get(), "absent", buffer, sizeof buffer));
    EXPECT_FALSE(comutil_get_json_str_by_key(nullptr, "text", buffer, sizeof buffer));
    EXPECT_FALSE(comutil_get_json_str_by_key(object.get(), "text", buffer, 0));
    EXPECT_STREQ(buffer, "abc");
}

TEST_F(Platform, CutsStringsBehindAWholeCharacter) {
    const JsonPtr object = parsed(R"({"ascii": "abcdef", "euro": "ab€", "face": "a😀b"})");
    char buffer[5];
    ASSERT_TRUE(comutil_get_json_str_by_key(object.get(), "ascii", buffer, 5));
    EXPECT_STREQ(buffer, "abcd");
    ASSERT_TRUE(comutil_get_json_str_by_key(object.get(), "euro", buffer, 5));
    EXPECT_STREQ(buffer, "ab");
    ASSERT_TRUE(comutil_get_json_str_by_key(object.get(), "face", buffer, 5));
    EXPECT_STREQ(buffer, "a");
    ASSERT_TRUE(comutil_get_json_str_by_key(object.get(), "ascii", buffer, 1));
    EXPECT_STREQ(buffer, "");
}

TEST_F(Platform, ReadsIntegersAndClampsThem) {
    const JsonPtr object =
        parsed(R"({"a": -5, "big": 9999999999, "small": -9999999999, "half": 1.5, "t": "1"})");
    int value = 42;
    EXPECT_FALSE(comutil_get_json_int_by_key(object.get(), "half", &value));
    EXPECT_FALSE(comutil_get_json_int_by_key(object.get(), "t", &value));
    EXPECT_EQ(value, 42);
    ASSERT_TRUE(comutil_get_json_int_by_key(object.get(), "a", &value));
    EXPECT_EQ(value, -5);
    ASSERT_TRUE(comutil_get_json_int_by_key(object.get(), "big", &value));
    EXPECT_EQ(value, INT_MAX);
    ASSERT_TRUE(comutil_get_json_int_by_key(object.get(), "small", &value));
    EXPECT_EQ(value, INT_MIN);
}

TEST_F(Platform, ReadsBooleansAndNothingElseAsBooleans) {
    const JsonPtr object = parsed(R"({"yes": true, "one": 1, "null": null})");
    bool value = false;
    EXPECT_FALSE(comutil_get_json_bool_by_key(object.get(), "one", &value));
    EXPECT_FALSE(comutil_get_json_bool_by_key(object.get(), "null", &value));
    EXPECT_FALSE(value);
    EXPECT_TRUE(comutil_get_json_bool_by_key(object.get(), "yes", &value));
    EXPECT_TRUE(value);
}

TEST_F(Platform, ReadsAnyNumberAsDouble) {
    const JsonPtr object = parsed(R"({"half": 0.5, "two": 2, "text": "3"})");
    double value = 9;
    EXPECT_FALSE(comutil_get_json_double_by_key(object.get(), "text", &value));
    EXPECT_EQ(value, 9);
    ASSERT_TRUE(comutil_get_json_double_by_key(object.get(), "half", &value));
    EXPECT_EQ(value, 0.5);
    ASSERT_TRUE(comutil_get_json_double_by_key(object.get(), "two", &value));
    EXPECT_EQ(value, 2);
}

std::string encode(const std::string& bytes) {
    std::string text = "before";
    EXPECT_EQ(b64_encode_v2(reinterpret_cast<const unsigned char*>(bytes.data()),
                            static_cast<unsigned>(bytes.size()), text),
              0);
    return text;
}

TEST_F(Platform, EncodesBase64OnOneLine) {
    EXPECT_EQ(encode(""), "");
    EXPECT_EQ(encode("f"), "Zg==");
    EXPECT_EQ(encode("fo"), "Zm8=");
    EXPECT_EQ(encode("foobar"), "Zm9vYmFy");
    EXPECT_EQ(encode("\xff\xef\xbe"), "/+++");
    EXPECT_EQ(encode(std::string(300, 'x')).find('\n'), std::string::npos);
    EXPECT_EQ(encode(std::string(300, 'x')).size(), 400U);
}

TEST_F(Platform, DecodesBase64WithLineBreaksAndWithoutPadding) {
    std::string bytes;
    EXPECT_EQ(b64_decode_v2("Zm9v\r\nYmFy\n", bytes), 0);
    EXPECT_EQ(bytes, "foobar");
    EXPECT_EQ(b64_decode_v2("Zg==", bytes), 0);
    EXPECT_EQ(bytes, "f");
    EXPECT_EQ(b64_decode_v2("Zm8", bytes), 0);
    EXPECT_EQ(bytes, "fo");
    EXPECT_EQ(b64_decode_v2("AAEA", bytes), 0);
    EXPECT_EQ(bytes, std::string("\0\1\0", 3));
    EXPECT_EQ(b64_decode_v2("", bytes), 0);
    EXPECT_EQ(bytes, "");
}

TEST_F(Platform, RefusesWhatIsNoBase64) {
    for (const char* text : {"Zm9*", "Zm 9v", "Zg==Zg==", "=", "Z", "Zm9v====", "Zm9_"}) {
        std::string bytes = "before";
        EXPECT_NE(b64_decode_v2(text, bytes), 0) << text;
        EXPECT_EQ(bytes, "before") << text;
    }
}

/// A folder for the files of programs.
class Folder {
public:
    Folder() { EXPECT_NE(mkdtemp(path_.data()), nullptr); }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string file(const char* name) const { return path_ + "/" + name; }

private:
    std::string path_ = std::filesystem::temp_directory_path() / "contract-XXXXXX";
};

int run_into(const std::string& output) {
    return zorv_exec(output.c_str(), output.c_str(), nullptr, "/bin/true",
                     static_cast<const char*>(nullptr));
}

TEST_F(Platform, PutsANewFileInThePlaceOfAProgramsOutput) {
    const Folder folder;
    const std::string output = folder.file("output");
    std::filesystem::create_symlink(folder.file("target"), output);
    EXPECT_EQ(run_into(output), 0);
    EXPECT_FALSE(std::filesystem::exists(folder.file("target")));
    struct stat found {};
    ASSERT_EQ(lstat(output.c_str(), &found), 0);
    EXPECT_TRUE(S_ISREG(found.st_mode));
    EXPECT_EQ(found.st_uid, geteuid());
    EXPECT_EQ(found.st_nlink, 1U);
}

TEST_F(Platform, TellsThatAProgramsOutputHasNoPlace) {
    const Folder folder;
    EXPECT_EQ(run_into(folder.file("missing/output")), ZORV_EXEC_NO_OUTPUT);
    const std::string output = folder.file("output");
    std::filesystem::create_directory(output);
    EXPECT_EQ(run_into(output), ZORV_EXEC_NO_OUTPUT);
    EXPECT_TRUE(std::filesystem::is_directory(output));
}

TEST_F(Platform, FindsNothingToRestrictWhereNothingIsMounted) {
    const Folder folder;
    std::filesystem::create_directory(folder.file("point"));
    EXPECT_EQ(restrict_mount(folder.file("point").c_str()), 0);
}

TEST_F(Platform, FindsForbiddenCharacters) {
    EXPECT_NE(check_black_chrset("a:b", "\"\\:|"), 0);
    EXPECT_NE(check_black_chrset("|", "\"\\:|"), 0);
    EXPECT_EQ(check_black_chrset("share/folder", "\"\\:|"), 0);
    EXPECT_EQ(check_black_chrset("", "\"\\:|"), 0);
}

TEST_F(Platform, ReadsAKeyAfresh) {
    std::string value = "before";
    int error = 0;
    recorder_.set_key("fuse", "fuse_enabled", "1");
    EXPECT_EQ(__nvrcfg_get_key_value("test", 1, "fuse", "fuse_enabled", value, &error), 0);
    EXPECT_EQ(value, "1");
    recorder_.set_key("fuse", "fuse_enabled", "0");
    EXPECT_EQ(__nvrcfg_get_key_value("test", 1, "fuse", "fuse_enabled", value, &error), 0);
    EXPECT_EQ(value, "0");
}

TEST_F(Platform, TellsThatAKeyDoesNotExist) {
    recorder_.set_key("fuse", "fuse_enabled", "1");
    std::string value = "before";
    int error = 0;
    EXPECT_NE(__nvrcfg_get_key_value("test", 1, "fuse", "other", value, &error), 0);
    EXPECT_EQ(error, NVRCFG_KEY_NOT_FOUND);
    EXPECT_NE(__nvrcfg_get_key_value("test", 1, "other", "fuse_enabled", value, &error), 0);
    EXPECT_EQ(value, "before");
}

TEST_F(Platform, AppendsTasksOldestFirst) {
    recorder_.add_tasks("older", "newer");
    std::list<TDataBackupConfig> tasks(1);
    ASSERT_EQ(__nvrcfg_get_rr_settings("test", 1, tasks), 0);
    ASSERT_EQ(tasks.size(), 3U);
    EXPECT_EQ(tasks.back().taskName, "newer");
    EXPECT_EQ(std::next(tasks.begin())->taskName, "older");
    EXPECT_EQ(std::next(tasks.begin())->taskID, "1");
}

TEST_F(Platform, HandsOutChannelSettingsAsBase64OfAnObject) {
    recorder_.add_channel(5, "guid-5", {0});
    std::string text;
    std::string json;
    ASSERT_EQ(cfgsvc_get_channel_setting(false, 0, text), 0);
    ASSERT_EQ(b64_decode_v2(text, json), 0);
    const JsonPtr settings = parsed(json.c_str());
    json_object* channels = json_object_object_get(settings.get(), "datas");
    ASSERT_TRUE(json_object_is_type(channels, json_type_array));
    ASSERT_EQ(json_object_array_length(channels), 1U);
    json_object* channel = json_object_array_get_idx(channels, 0);
    EXPECT_EQ(json_object_get_int(json_object_object_get(channel, "channel_index")), 5);
    EXPECT_STREQ(json_object_get_string(json_object_object_get(channel, "guid")), "guid-5");
}

TEST_F(Platform, ReadsStatesByChannelIndexAndIdleForTheRest) {
    recorder_.add_channel(2, "guid-2", {7, 0});
    std::vector<char> text(REC_STATE_TEXT_SIZE, 'x');
    std::vector<TChannelStatus> channels(VESK_MAX_CHANNELS);
    int count = 0;
    ASSERT_EQ(nvr_rec_state_read(text.data(), count, channels.data(), VESK_MAX_CHANNELS, nullptr),
              0);
    EXPECT_GE(count, 1);
    EXPECT_EQ(channels[2].stream_state[0], 7);
    EXPECT_EQ(channels[2].stream_state[1], 0);
    EXPECT_EQ(channels[2].stream_state[2], 4);
    EXPECT_EQ(channels[0].stream_state[0], 4);
    EXPECT_EQ(channels[127].stream_state[15], 4);
    EXPECT_EQ(std::string(text.data()).find('\n'), std::string::npos);
}

TEST_F(Platform, ListsRemovedChannelsWithTheirSizes) {
    recorder_.add_removed_channel(9, "uuid-9", 1000, 24);
    CVeskStorage storage;
    IStorageSetting* setting = nullptr;
    ASSERT_EQ(storage.create_storage_setting(&setting), 0);
    std::list<TRemovedChannelInfo> removed(1);
    EXPECT_NE(setting->get_channel_config_list(removed, 1), 0);
    EXPECT_EQ(removed.size(), 1U);
    ASSERT_EQ(setting->get_channel_config_list(removed, VESK_REMOVED_CHANNELS), 0);
    ASSERT_EQ(removed.size(), 2U);
    EXPECT_EQ(removed.back().channel_index, 9);
    EXPECT_EQ(removed.back().uuid, "uuid-9");
    EXPECT_EQ(removed.back().display_name, "gone");
    EXPECT_EQ(removed.back().primary_size, 1000);
    EXPECT_EQ(removed.back().secondary_size, 24);
    EXPECT_EQ(storage.destroy_storage_setting(&setting), 0);
    EXPECT_EQ(setting, nullptr);
    EXPECT_NE(storage.destroy_storage_setting(&setting), 0);
}

TEST_F(Platform, CountsNoDaysWithoutRecordings) {
    std::array<int, VESK_MAX_CHANNELS> normal{};
    std::array<int, VESK_MAX_CHANNELS> alarm{};
    std::array<long long, VESK_MAX_CHANNELS> earliest{};
    std::array<long long, VESK_MAX_CHANNELS> latest{};
    ASSERT_EQ(get_storage_days(normal.data(), alarm.data(), earliest.data(), latest.data()), 0);
    for (int channel = 0; channel < VESK_MAX_CHANNELS; ++channel)
        EXPECT_EQ(normal[channel] + alarm[channel], 0) << channel;
}

}  // namespace
