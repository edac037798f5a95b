// Tests of the request parser and of the two date helpers beside it.
#include "backup/task_request.h"

#include <climits>

#include "cgi/result_code.h"
#include "tests/support/fake_platform/platform_test.h"
#include "tests/support/sample_task.h"

namespace {

constexpr int CREATE = 0;
constexpr int MODIFY = 1;

class TaskRequest : public PlatformTest {
protected:
    // Parses over a record that is filled already, to see what the parser touches.
    int parse(const std::string& body, int mode = CREATE) {
        task.taskID = "before";
        task.taskName = "before";
        task.enable = true;
        task.status = 6;
        return parser_task(&task, body.c_str(), mode);
    }

    void expect_refused(int code, const std::string& body, int mode = CREATE,
                        const Strings& debug = {"parser json fail\n"}) {
        EXPECT_EQ(parse(body, mode), code) << body;
        EXPECT_EQ(fake::debug_texts(), debug) << body;
        EXPECT_EQ(task.taskName, "before") << body;
        EXPECT_EQ(task.taskID, "before") << body;
        EXPECT_TRUE(task.enable) << body;
        fake::platform.debug.clear();
    }

    TDataBackupConfig task;
};

TEST_F(TaskRequest, CompleteBodyFillsEveryMember) {
    ASSERT_EQ(parse(task_body()), 0);
    EXPECT_EQ(task.taskName, "Night copy");
    EXPECT_EQ(task.serverIP, "192.0.2.7");
    EXPECT_EQ(task.port, 445);
    EXPECT_EQ(task.username, "backup");
    EXPECT_EQ(task.password, "p@ss word");
    EXPECT_EQ(task.destPath, "/share/a");
    EXPECT_EQ(task.chIdxList, "1,3,4");
    EXPECT_EQ(task.backupType, 1);
    EXPECT_EQ(task.backupDays, 7);
    EXPECT_EQ(task.backupStartDay, "2024-03-01");
    EXPECT_EQ(task.backupEndDay, "2024-03-02");
    EXPECT_FALSE(task.backupImmediately);
    EXPECT_EQ(task.scheduleType, 1);
    EXPECT_EQ(task.scheduleWeekly, 3);
    EXPECT_EQ(task.scheduleHour, 2);
    EXPECT_EQ(task.scheduleMin, 30);
    EXPECT_EQ(task.scheduleEveryHours, 6);
    EXPECT_EQ(task.recordingType, 2);
    EXPECT_EQ(task.recordingFormat, 1);
    EXPECT_TRUE(task.remoteKeepRec);
    EXPECT_EQ(task.remoteKeepRecDays, 30);
    EXPECT_EQ(task.remoteOverwriteType, 1);
    EXPECT_EQ(fake::debug_texts(), Strings{});
    EXPECT_EQ(fake::effect_names(), Strings{});
}

TEST_F(TaskRequest, SuccessOverwritesWhatTheBodyNeverSets) {
    task.spareFlag = true;
    task.extraValue1 = task.extraValue2 = 1.5F;
    task.startTime = task.endTime = "1700000000";
    ASSERT_EQ(parse(task_body({{"taskID", R"("77")"}, {"enable", "true"}, {"status", "4"}})), 0);
    EXPECT_FALSE(task.spareFlag);
    EXPECT_FALSE(task.enable);
    EXPECT_EQ(task.taskID, "");
    EXPECT_EQ(task.status, 0);
    EXPECT_EQ(task.extraValue1, 0.0F);
    EXPECT_EQ(task.extraValue2, 0.0F);
    EXPECT_EQ(task.startTime, "");
    EXPECT_EQ(task.endTime, "");
}

TEST_F(TaskRequest, NoBodyIsAnInputFormatError) {
    EXPECT_EQ(parser_task(&task, nullptr, CREATE), CGI_INPUT_FORMAT_ERROR);
    EXPECT_EQ(fake::debug_texts(), Strings{"input format error\n"});
}

TEST_F(TaskRequest, BodyThatIsNotJsonIsAnInputFormatError) {
    const std::string nested = std::string(10000, '[');
    for (const std::string& body :
         {std::string(""), std::string("x"), std::string("{"), std::string("{\"taskName\": "),
          task_body().substr(0, 40), std::string("null"), std::string("<xml/>"), nested})
        expect_refused(CGI_INPUT_FORMAT_ERROR, body, CREATE, {"json_tokener_parse fail\n"});
}

TEST_F(TaskRequest, JsonThatIsNoObjectLacksItsMembers) {
    for (const std::string& body :
         {std::string("[]"), "[" + task_body() + "]", std::string("5"), std::string("\"text\""),
          std::string("true"), std::string("{}")})
        expect_refused(CGI_PARSER_JSON_FAIL, body);
}

TEST_F(TaskRequest, MissingRequiredMemberIsAParseFailure) {
    for (const char* name : {"taskName", "serverIP", "port", "username", "password", "destPath",
                             "chIdxList", "backupType", "scheduleType", "scheduleWeekly",
                             "scheduleHour", "scheduleMin", "scheduleEveryHours", "recordingType",
                             "recordingFormat", "remoteKeepRec", "remoteOverwriteType"})
        for (const int mode : {CREATE, MODIFY})
            expect_refused(CGI_PARSER_JSON_FAIL, task_body({{name, ABSENT}}), mode);
}

TEST_F(TaskRequest, MemberOfTheWrongKindCountsAsMissing) {
    for (const char* text :
         {"taskName", "serverIP", "username", "password", "destPath", "backupType", "scheduleType",
          "recordingType", "recordingFormat", "remoteOverwriteType"})
        for (const char* value : {"1", "null", "true", "[]", "{}"})
            expect_refused(CGI_PARSER_JSON_FAIL, task_body({{text, value}}));
    for (const char* number :
         {"port", "scheduleWeekly", "scheduleHour", "scheduleMin", "scheduleEveryHours"})
        for (const char* value : {"\"1\"", "null", "true", "1.5", "[1]"})
            expect_refused(CGI_PARSER_JSON_FAIL, task_body({{number, value}}));
    for (const char* value : {"1", "\"true\"", "null"})
        expect_refused(CGI_PARSER_JSON_FAIL, task_body({{"remoteKeepRec", value}}));
}

TEST_F(TaskRequest, MissingBackupImmediatelyIsAParseFailureWithItsOwnDebugLine) {
    for (const char* value : {ABSENT, "1", "\"true\""}) {
        EXPECT_EQ(parse(task_body({{"backupImmediately", value}})), CGI_PARSER_JSON_FAIL);
        ASSERT_EQ(fake::platform.debug.size(), 1U);
        EXPECT_EQ(fake::platform.debug[0].text.rfind("nTime = ", 0), 0U);
        EXPECT_EQ(task.taskName, "before");
        fake::platform.debug.clear();
    }
}

TEST_F(TaskRequest, EnumerationTextOutsideItsTableIsAnInvalidValue) {
    for (const char* name :
         {"backupType", "scheduleType", "recordingType", "recordingFormat", "remoteOverwriteType"})
        for (const std::string& value :
             {std::string("\"\""), std::string("\"other\""), std::string("\"daily \""),
              "\"" + std::string(10000, 'a') + "\""})
            expect_refused(CGI_INVALID_VALUE, task_body({{name, value}}));
}

TEST_F(TaskRequest, CapitalDailyIsAnInvalidValue) {
    expect_refused(CGI_INVALID_VALUE, task_body({{"scheduleType", "\"Daily\""}}));
}

TEST_F(TaskRequest, EveryEnumerationTextGivesItsIndex) {
    const auto expect_indexes = [this](const std::string& name, int TDataBackupConfig::*field,
                                       const Strings& table) {
        for (std::size_t row = 0; row < table.size(); ++row) {
            EXPECT_EQ(parse(task_body({{name, "\"" + table[row] + "\""}})), 0) << table[row];
            EXPECT_EQ(task.*field, static_cast<int>(row)) << table[row];
        }
    };
    expect_indexes("backupType", &TDataBackupConfig::backupType,
                   {"BackupByLastDay", "BackupByTimeRange"});
    expect_indexes("scheduleType", &TDataBackupConfig::scheduleType, {"daily", "weekly", "hour"});
    expect_indexes("recordingType", &TDataBackupConfig::recordingType,
                   {"recording", "alarm", "recording_and_alarm"});
    expect_indexes("recordingFormat", &TDataBackupConfig::recordingFormat, {"mp4", "ostra"});
    expect_indexes("remoteOverwriteType", &TDataBackupConfig::remoteOverwriteType,
                   {"stop_overwrite", "overwrite"});
}

TEST_F(TaskRequest, FirstFailureInReadingOrderDecides) {
    expect_refused(CGI_PARSER_JSON_FAIL,
                   task_body({{"taskName", ABSENT}, {"backupType", "\"other\""}}));
    expect_refused(CGI_INVALID_VALUE,
                   task_body({{"backupType", "\"other\""}, {"scheduleType", ABSENT}}));
    expect_refused(CGI_INVALID_VALUE, task_body({{"backupDays", "100"}, {"remoteKeepRec", ABSENT}}),
                   CREATE, {"parser json fail: 100\n"});
}

TEST_F(TaskRequest, BackupDays99IsAccepted) {
    EXPECT_EQ(parse(task_body({{"backupDays", "99"}})), 0);
    EXPECT_EQ(task.backupDays, 99);
}

TEST_F(TaskRequest, BackupDays100IsAnInvalidValueAndLogged) {
    expect_refused(CGI_INVALID_VALUE, task_body({{"backupDays", "100"}}), CREATE,
                   {"parser json fail: 100\n"});
    expect_refused(CGI_INVALID_VALUE, task_body({{"backupDays", "99999999999"}}), MODIFY,
                   {"parser json fail: 2147483647\n"});
}

TEST_F(TaskRequest, NegativeBackupDaysAreAccepted) {
    EXPECT_EQ(parse(task_body({{"backupDays", "-5"}})), 0);
    EXPECT_EQ(task.backupDays, -5);
}

TEST_F(TaskRequest, CreateWithoutBackupDaysStores0) {
    for (const char* value : {ABSENT, "\"7\"", "null"}) {
        EXPECT_EQ(parse(task_body({{"backupDays", value}}), CREATE), 0) << value;
        EXPECT_EQ(task.backupDays, 0);
    }
}

TEST_F(TaskRequest, ModifyWithoutBackupDaysIsAnInvalidValue) {
    for (const char* value : {ABSENT, "\"7\"", "null"})
        expect_refused(CGI_INVALID_VALUE, task_body({{"backupDays", value}}), MODIFY);
}

TEST_F(TaskRequest, RemoteKeepRecDaysAbove99AreAnInvalidValue) {
    EXPECT_EQ(parse(task_body({{"remoteKeepRecDays", "99"}})), 0);
    EXPECT_EQ(task.remoteKeepRecDays, 99);
    EXPECT_EQ(parse(task_body({{"remoteKeepRecDays", "-5"}})), 0);
    EXPECT_EQ(task.remoteKeepRecDays, -5);
    expect_refused(CGI_INVALID_VALUE, task_body({{"remoteKeepRecDays", "100"}}));
}

TEST_F(TaskRequest, CreateWithoutRemoteKeepRecDaysStores0) {
    EXPECT_EQ(parse(task_body({{"remoteKeepRecDays", ABSENT}}), CREATE), 0);
    EXPECT_EQ(task.remoteKeepRecDays, 0);
}

TEST_F(TaskRequest, ModifyWithoutRemoteKeepRecDaysIsAParseFailure) {
    expect_refused(CGI_PARSER_JSON_FAIL, task_body({{"remoteKeepRecDays", ABSENT}}), MODIFY);
}

TEST_F(TaskRequest, ChannelListKeepsItsOrder) {
    EXPECT_EQ(parse(task_body({{"chIdxList", "[3, 1, 2]"}})), 0);
    EXPECT_EQ(task.chIdxList, "3,1,2");
}

TEST_F(TaskRequest, EmptyChannelListGivesAnEmptyText) {
    EXPECT_EQ(parse(task_body({{"chIdxList", "[]"}})), 0);
    EXPECT_EQ(task.chIdxList, "");
}

TEST_F(TaskRequest, ChannelNumbersAreTakenAsWholeNumbers) {
    EXPECT_EQ(parse(task_body({{"chIdxList", "[-1, 2.9, 99999999999]"}})), 0);
    EXPECT_EQ(task.chIdxList, "-1,2,2147483647");
}

TEST_F(TaskRequest, LongChannelListIsKeptWhole) {
    std::string list = "[0";
    std::string expected = "0";
    for (int channel = 1; channel < 5000; ++channel) {
        list += "," + std::to_string(channel);
        expected += "," + std::to_string(channel);
    }
    EXPECT_EQ(parse(task_body({{"chIdxList", list + "]"}})), 0);
    EXPECT_EQ(task.chIdxList, expected);
}

TEST_F(TaskRequest, ChannelListThatIsNoArrayIsAParseFailure) {
    for (const char* value : {"\"1,2\"", "5", "{}", "null", "true"})
        expect_refused(CGI_PARSER_JSON_FAIL, task_body({{"chIdxList", value}}));
}

TEST_F(TaskRequest, StartDay0IsTheLocalDateOfTheEpoch) {
    const std::string body = task_body({{"backupStartDay", "0"}});
    EXPECT_EQ(parse(body), 0);
    EXPECT_EQ(task.backupStartDay, "1970-01-01");
    set_zone("XXX8");
    EXPECT_EQ(parse(body), 0);
    EXPECT_EQ(task.backupStartDay, "1969-12-31");
}

TEST_F(TaskRequest, DaysAre32BitSecondsInLocalTime) {
    EXPECT_EQ(
        parse(task_body({{"backupStartDay", "-2147483648"}, {"backupEndDay", "99999999999"}})), 0);
    EXPECT_EQ(task.backupStartDay, "1901-12-13");
    EXPECT_EQ(task.backupEndDay, "2038-01-19");
    set_zone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(parse(task_body({{"backupStartDay", "1719784800"}, {"backupEndDay", "1719784799"}})),
              0);
    EXPECT_EQ(task.backupStartDay, "2024-07-01");
    EXPECT_EQ(task.backupEndDay, "2024-06-30");
}

TEST_F(TaskRequest, AbsentDaysAreEmptyAndAnAbsentEndDayIsLogged) {
    EXPECT_EQ(parse(task_body({{"backupStartDay", ABSENT}})), 0);
    EXPECT_EQ(task.backupStartDay, "");
    EXPECT_EQ(fake::debug_texts(), Strings{});
    for (const char* value : {ABSENT, "\"2024-03-01\""}) {
        EXPECT_EQ(parse(task_body({{"backupEndDay", value}})), 0);
        EXPECT_EQ(task.backupEndDay, "");
        ASSERT_EQ(fake::platform.debug.size(), 1U);
        EXPECT_EQ(fake::platform.debug[0].text.rfind("nTime = ", 0), 0U);
        fake::platform.debug.clear();
    }
}

TEST_F(TaskRequest, ScheduleNumbersHaveNoRange) {
    EXPECT_EQ(parse(task_body({{"scheduleWeekly", "-1"},
                               {"scheduleHour", "99"},
                               {"scheduleMin", "-2147483648"},
                               {"scheduleEveryHours", "2147483647"},
                               {"port", "-7"}})),
              0);
    EXPECT_EQ(task.scheduleWeekly, -1);
    EXPECT_EQ(task.scheduleHour, 99);
    EXPECT_EQ(task.scheduleMin, INT_MIN);
    EXPECT_EQ(task.scheduleEveryHours, INT_MAX);
    EXPECT_EQ(task.port, -7);
}

TEST_F(TaskRequest, NameLongerThan255CharactersIsCut) {
    for (const std::size_t length : {255, 256, 10000}) {
        EXPECT_EQ(parse(task_body({{"taskName", "\"" + std::string(length, 'n') + "\""}})), 0);
        EXPECT_EQ(task.taskName, std::string(255, 'n'));
    }
}

TEST_F(TaskRequest, CutNeverSplitsACharacter) {
    std::string name(254, 'n');
    EXPECT_EQ(parse(task_body({{"taskName", "\"" + name + "é\""}})), 0);
    EXPECT_EQ(task.taskName, name);
}

TEST_F(TaskRequest, TextsAreTakenAsSent) {
    EXPECT_EQ(parse(task_body({{"taskName", R"("a\"b\\c\n\u0001ä")"},
                               {"password", R"("%41+\/ \\\"'`$!")"},
                               {"username", "\"\xff\xfe\""}})),
              0);
    EXPECT_EQ(task.taskName,
              "a\"b\\c\n\x01"
              "ä");
    EXPECT_EQ(task.password, "%41+/ \\\"'`$!");
    EXPECT_EQ(task.username, "\xff\xfe");
}

TEST_F(TaskRequest, EmptyTextsAreAccepted) {
    EXPECT_EQ(parse(task_body({{"taskName", "\"\""}, {"password", "\"\""}, {"destPath", "\"\""}})),
              0);
    EXPECT_EQ(task.taskName + task.password + task.destPath, "");
}

// --- dates --------------------------------------------------------------------------------------

tm day_and_time(const std::string& text, int mode) {
    tm time = {};
    time.tm_mday = time.tm_hour = time.tm_min = time.tm_sec = 77;
    EXPECT_EQ(str_time_to_tm(text, &time, mode), 0) << text;
    return time;
}

void expect_time(const tm& time, std::vector<int> expected) {
    EXPECT_EQ((std::vector<int>{time.tm_year, time.tm_mon, time.tm_mday, time.tm_hour, time.tm_min,
                                time.tm_sec}),
              expected);
}

TEST(StrTimeToTm, Mode0ReadsADay) {
    expect_time(day_and_time("2024-03-01", 0), {124, 2, 1, 0, 0, 0});
    expect_time(day_and_time("1970-12-31", 0), {70, 11, 31, 0, 0, 0});
}

TEST(StrTimeToTm, Mode0IgnoresWhatFollowsTheDay) {
    expect_time(day_and_time("2024-03-01-10-20-30", 0), {124, 2, 1, 0, 0, 0});
}

TEST(StrTimeToTm, Mode1ReadsDayAndTime) {
    expect_time(day_and_time("2024-03-01-10-20-30", 1), {124, 2, 1, 10, 20, 30});
}

TEST(StrTimeToTm, OtherModesReadYearAndMonth) {
    expect_time(day_and_time("2024-03-01-10-20-30", 2), {124, 2, 0, 0, 0, 0});
    expect_time(day_and_time("2024-03-", -1), {124, 2, 0, 0, 0, 0});
}

TEST(StrTimeToTm, StrayCharactersBehindDigitsAreIgnored) {
    expect_time(day_and_time("2024x-03y-01z", 0), {124, 2, 1, 0, 0, 0});
}

TEST(StrTimeToTm, MissingSeparatorIsRefused) {
    tm time = {};
    for (const int mode : {0, 1, 2})
        for (const char* text : {"", "2024", "2024-03", "20240301"})
            EXPECT_EQ(str_time_to_tm(text, &time, mode), -1) << text << " mode " << mode;
    for (const char* text : {"2024-03-01", "2024-03-01-10", "2024-03-01-10-20"})
        EXPECT_EQ(str_time_to_tm(text, &time, 1), -1) << text;
}

class LocalTime : public PlatformTest {};

TEST_F(LocalTime, WritesThePaddedLocalDate) {
    char text[32];
    get_local_time_str(0, text, sizeof text);
    EXPECT_STREQ(text, "1970-01-01");
    set_zone("XXX8");
    get_local_time_str(0, text, sizeof text);
    EXPECT_STREQ(text, "1969-12-31");
    get_local_time_str(-60000000000, text, sizeof text);
    EXPECT_STREQ(text, "0068-09-03");
}

TEST_F(LocalTime, IsCutToTheBuffer) {
    char text[16] = "...............";
    get_local_time_str(0, text, 5);
    EXPECT_STREQ(text, "1970");
    EXPECT_EQ(text[5], '.');
}

TEST_F(LocalTime, TimeWithoutADateStaysInsideTheBuffer) {
    char text[16] = "...............";
    get_local_time_str(LONG_MAX, text, 8);
    EXPECT_LT(strnlen(text, 8), 8U);
    EXPECT_EQ(text[8], '.');
}

}  // namespace
