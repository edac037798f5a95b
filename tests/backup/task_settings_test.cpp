// Tests of the settings text: keys, order, content, and the removal of backslashes.
#include "backup/task_settings.h"

#include "platform/utilities.h"
#include "tests/support/fake_platform/platform_test.h"
#include "tests/support/sample_task.h"

namespace {

constexpr int CREATE = 0;
constexpr int CHANGE = 1;
constexpr int NEITHER = 2;

std::string base64(const std::string& text) {
    std::string encoded;
    b64_encode_v2(reinterpret_cast<const unsigned char*>(text.data()),
                  static_cast<unsigned>(text.size()), encoded);
    return encoded;
}

/// With a slash to escape, and not yet run.
TDataBackupConfig new_night_copy() {
    TDataBackupConfig task = night_copy(TASK_NEW);
    task.destPath = "/share/a";
    task.startTime = "";
    task.endTime = "";
    return task;
}

const std::string inner_text =
    R"({ "chIdxList": "1,3,4", "backupType": 1, "backupDays": 7, )"
    R"("backupStartDay": "2024-03-01", "backupEndDay": "2024-03-02", )"
    R"("backupImmediately": false, "recordingType": 2, "recordingFormat": 1, )"
    R"("remoteKeepRec": true, "remoteKeepRecDays": 30, "remoteOverwriteType": 1 })";

std::string open_text(const std::string& inner) {
    return R"({ "taskName": "Night copy", "serverIP": "192.0.2.7", "port": 445, )"
           R"("username": "backup", "password": "p@ss word", "destPath": "/share/a", )"
           R"("scheduleType": 1, "scheduleWeekly": 3, "scheduleHour": 2, "scheduleMin": 30, )"
           R"("scheduleEveryHours": 6, "content": ")" +
           base64(inner) + "\"";
}

class TaskSettings : public PlatformTest {
protected:
    static std::string settings(const TDataBackupConfig& task, int mode) {
        std::string text;
        EXPECT_EQ(backupconfig_to_string(task, &text, mode), 0);
        return text;
    }

    static std::string named(const std::string& name) {
        TDataBackupConfig task;
        task.taskName = name;
        const std::string text = settings(task, NEITHER);
        return text.substr(0, text.find(", \"serverIP\""));
    }

    static void store(const std::string& id, int status) {
        TDataBackupConfig task;
        task.taskID = id;
        task.status = status;
        fake::platform.tasks.push_back(task);
    }
};

TEST_F(TaskSettings, NewTaskCarriesEnableStatusAndTimesButNoIdentifier) {
    EXPECT_EQ(settings(new_night_copy(), CREATE),
              open_text(inner_text) +
                  R"(, "enable": true, "status": 1, "startTime": "", "endTime": "" })");
    EXPECT_EQ(fake::effect_names(), Strings{});
    EXPECT_EQ(fake::debug_texts(), Strings{});
}

TEST_F(TaskSettings, NewTaskCarriesTheRecordsOwnEnableStatusAndTimes) {
    TDataBackupConfig task = new_night_copy();
    task.enable = false;
    task.status = 4;
    task.startTime = "1700000000";
    task.endTime = "1700000001";
    EXPECT_EQ(settings(task, CREATE),
              open_text(inner_text) + R"(, "enable": false, "status": 4, )"
                                      R"("startTime": "1700000000", "endTime": "1700000001" })");
}

TEST_F(TaskSettings, ChangedTaskCarriesIdentifierAndIsEnabled) {
    TDataBackupConfig task = new_night_copy();
    task.enable = false;
    EXPECT_EQ(settings(task, CHANGE),
              open_text(inner_text) + R"(, "taskID": "12", "enable": true })");
    EXPECT_EQ(fake::effects(), (std::vector<fake::Call>{{"__nvrcfg_get_rr_settings",
                                                         {"recording_backup_function", "line"}}}));
}

TEST_F(TaskSettings, FinishedCancelledOrFailedTaskThatIsChangedBecomesNew) {
    for (const int status : {0, 5, 6}) {
        fake::reset();
        store("12", status);
        EXPECT_EQ(settings(new_night_copy(), CHANGE),
                  open_text(inner_text) + R"(, "taskID": "12", "status": 1, "enable": true })")
            << status;
    }
}

TEST_F(TaskSettings, RunningTaskThatIsChangedCarriesNoStatus) {
    for (const int status : {4, 1, 2, 3, 7, 99, -1}) {
        fake::reset();
        store("12", status);
        EXPECT_EQ(settings(new_night_copy(), CHANGE),
                  open_text(inner_text) + R"(, "taskID": "12", "enable": true })")
            << status;
    }
}

TEST_F(TaskSettings, OnlyTheTaskOfExactlyThisIdentifierDecidesAboutTheStatus) {
    for (const char* id : {"1", "120", "012", "12 ", "", "2"}) store(id, 0);
    EXPECT_EQ(settings(new_night_copy(), CHANGE),
              open_text(inner_text) + R"(, "taskID": "12", "enable": true })");
}

TEST_F(TaskSettings, LaterRecordOfTheSameIdentifierDecidesToo) {
    store("12", 4);
    store("12", 6);
    EXPECT_EQ(settings(new_night_copy(), CHANGE),
              open_text(inner_text) + R"(, "taskID": "12", "status": 1, "enable": true })");
}

TEST_F(TaskSettings, FailedReadLeavesTheTextUnchangedAndIsLogged) {
    fake::fail("__nvrcfg_get_rr_settings", 2);
    for (const char* before : {"", "before"}) {
        std::string text = before;
        EXPECT_EQ(backupconfig_to_string(new_night_copy(), &text, CHANGE), 0);
        EXPECT_EQ(text, before);
        EXPECT_EQ(fake::debug_texts(), Strings{"nvrcfg_get_rr_settings fail\n"});
        fake::platform.debug.clear();
    }
}

TEST_F(TaskSettings, OtherModesAddNothing) {
    EXPECT_EQ(settings(new_night_copy(), NEITHER), open_text(inner_text) + " }");
    EXPECT_EQ(fake::effect_names(), Strings{});
}

TEST_F(TaskSettings, WeekdaySevenIsStoredAsZero) {
    TDataBackupConfig task = new_night_copy();
    for (const auto& [given, stored] : {std::pair(7, "0"), {0, "0"}, {6, "6"}, {8, "8"}}) {
        task.scheduleWeekly = given;
        EXPECT_NE(settings(task, NEITHER).find(std::string("\"scheduleWeekly\": ") + stored + ","),
                  std::string::npos)
            << given;
    }
}

TEST_F(TaskSettings, ImmediateTaskIsEnabledOutsideButNotImmediateInside) {
    TDataBackupConfig task = new_night_copy();
    task.backupImmediately = true;
    task.enable = false;
    EXPECT_EQ(settings(task, CREATE),
              open_text(inner_text) +
                  R"(, "enable": true, "status": 1, "startTime": "", "endTime": "" })");
    EXPECT_EQ(settings(task, CHANGE),
              open_text(inner_text) + R"(, "taskID": "12", "enable": true })");
    EXPECT_EQ(settings(task, NEITHER), open_text(inner_text) + R"(, "enable": true })");
}

TEST_F(TaskSettings, SlashesStandWithoutBackslashes) {
    TDataBackupConfig task;
    task.destPath = "/share/a/b//c";
    EXPECT_NE(settings(task, CREATE).find(R"("destPath": "/share/a/b//c")"), std::string::npos);
}

TEST_F(TaskSettings, ContentWithASlashStandsAsPlainBase64) {
    TDataBackupConfig task = new_night_copy();
    task.chIdxList = "?>?>?>";  // question marks encode to slashes
    const std::string text = settings(task, CREATE);
    const auto begin = text.find("\"content\": \"") + 12;
    const std::string content = text.substr(begin, text.find('"', begin) - begin);
    EXPECT_NE(content.find('/'), std::string::npos);
    std::string inner;
    ASSERT_EQ(b64_decode_v2(content, inner), 0);
    EXPECT_EQ(inner,
              R"({ "chIdxList": "?>?>?>)" + inner_text.substr(inner_text.find("\", \"backupType")));
}

TEST_F(TaskSettings, ContentHoldsItsSlashesWithoutBackslashes) {
    TDataBackupConfig task = new_night_copy();
    task.backupStartDay = "2024/03/01";
    std::string inner = inner_text;
    inner.replace(inner.find("2024-03-01"), 10, "2024/03/01");
    EXPECT_EQ(settings(task, NEITHER), open_text(inner) + " }");
}

TEST_F(TaskSettings, ContentOfALongChannelListIsWholeAndOnOneLine) {
    TDataBackupConfig task = new_night_copy();
    task.chIdxList = "0";
    for (int channel = 1; channel < 2000; ++channel)
        task.chIdxList += "," + std::to_string(channel);
    std::string inner = inner_text;
    inner.replace(inner.find("1,3,4"), 5, task.chIdxList);
    EXPECT_EQ(settings(task, NEITHER), open_text(inner) + " }");
}

TEST_F(TaskSettings, NameWithAQuoteLosesItsEscape) {
    EXPECT_EQ(named("a\"b"), R"({ "taskName": "a"b")");
}

TEST_F(TaskSettings, NameWithABackslashKeepsOne) {
    EXPECT_EQ(named("a\\b"), R"({ "taskName": "a\b")");
    EXPECT_EQ(named("a\\\\b"), R"({ "taskName": "a\\b")");
    EXPECT_EQ(named("a\\\"b"), R"({ "taskName": "a\"b")");
}

TEST_F(TaskSettings, ControlCharactersLoseTheBackslashOfTheirEscape) {
    EXPECT_EQ(named("a\nb\tc\x01"), R"({ "taskName": "anbtcu0001")");
}

TEST_F(TaskSettings, InvalidUtf8StandsAsItIs) {
    EXPECT_EQ(named("a\xff\xc3"), "{ \"taskName\": \"a\xff\xc3\"");
}

TEST_F(TaskSettings, LongNameStandsWhole) {
    const std::string name(10000, 'n');
    EXPECT_EQ(named(name), "{ \"taskName\": \"" + name + "\"");
}

TEST_F(TaskSettings, TheCallersRecordIsLeftAlone) {
    TDataBackupConfig task = new_night_copy();
    task.scheduleWeekly = 7;
    task.backupImmediately = true;
    settings(task, CREATE);
    EXPECT_EQ(task.scheduleWeekly, 7);
    EXPECT_TRUE(task.backupImmediately);
}

std::string erased(const char* pattern, std::string text) {
    erease_sub_string(pattern, &text);
    return text;
}

TEST(EraseSubString, RemovesEachOccurrence) {
    EXPECT_EQ(erased("\\", R"(\/share\/a)"), "/share/a");
    EXPECT_EQ(erased("\\", R"(a\)"), "a");
    EXPECT_EQ(erased("\\", "none"), "none");
    EXPECT_EQ(erased("\\", ""), "");
}

TEST(EraseSubString, LeavesOneOfTwoAdjacentOccurrences) {
    EXPECT_EQ(erased("\\", R"(\\)"), R"(\)");
    EXPECT_EQ(erased("\\", R"(a\\b)"), R"(a\b)");
    EXPECT_EQ(erased("\\", R"(\\\)"), R"(\)");
    EXPECT_EQ(erased("\\", R"(\\\\)"), R"(\\)");
}

TEST(EraseSubString, SearchesOnOneCharacterBehindALongerPattern) {
    EXPECT_EQ(erased("ab", "ababab"), "ab");
    EXPECT_EQ(erased("ab", "abxab"), "x");
}

}  // namespace
