// Tests of creating and modifying a task: order of the steps, replies, events, failures.
#include <json-c/json.h>

#include "backup/recording_backup_function.h"
#include "cgi/result_code.h"
#include "platform/nvrcfg.h"
#include "platform/utilities.h"
#include "tests/backup/daemon_messages.h"
#include "tests/backup/linked_failures.h"
#include "tests/support/fake_platform/platform_test.h"
#include "tests/support/sample_task.h"

namespace {

using Calls = std::vector<fake::Call>;

constexpr char MESSAGE[] = "Insert task to database fail.";
constexpr char SUCCESS[] = R"({ "ret_code": 0, "mesg": "Success." })";

std::string base64(const std::string& text) {
    std::string encoded;
    b64_encode_v2(reinterpret_cast<const unsigned char*>(text.data()),
                  static_cast<unsigned>(text.size()), encoded);
    return encoded;
}

/// The settings text of task_body(), up to the members that tell create from modify.
std::string stored_text(const std::string& rest) {
    return R"({ "taskName": "Night copy", "serverIP": "192.0.2.7", "port": 445, )"
           R"("username": "backup", "password": "p@ss word", "destPath": "/share/a", )"
           R"("scheduleType": 1, "scheduleWeekly": 3, "scheduleHour": 2, "scheduleMin": 30, )"
           R"("scheduleEveryHours": 6, "content": ")" +
           base64(R"({ "chIdxList": "1,3,4", "backupType": 1, "backupDays": 7, )"
                  R"("backupStartDay": "2024-03-01", "backupEndDay": "2024-03-02", )"
                  R"("backupImmediately": false, "recordingType": 2, "recordingFormat": 1, )"
                  R"("remoteKeepRec": true, "remoteKeepRecDays": 30, "remoteOverwriteType": 1 })") +
           "\", " + rest + " }";
}

std::string new_text() {
    return stored_text(R"("enable": true, "status": 1, "startTime": "", "endTime": "")");
}

std::string changed_text() {
    return stored_text(R"("taskID": "12", "enable": true)");
}

fake::Call change_event(const std::string& event) {
    return {"send_surveillance_setting_log_with_username",
            {event, "-1", "198.51.100.9", "admin", "Recording Backup", "Night copy"}};
}

class TaskChange : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        linked_failures = {};
        __ip = "198.51.100.9";
        __user = "admin";
    }

    void TearDown() override { linked_failures = {}; }

    int create(const std::string& body) { return finish(create_backup_task(&reply, body.c_str())); }

    int modify(const std::string& body, const char* id = "12") {
        return finish(modify_backup_task(&reply, body.c_str(), id));
    }

    int finish(int result) {
        text = printed(reply);
        reply = nullptr;
        return result;
    }

    static void store(const char* id, int status = 4, bool enable = true) {
        TDataBackupConfig task;
        task.taskID = id;
        task.status = status;
        task.enable = enable;
        fake::platform.tasks.push_back(task);
    }

    json_object* reply = nullptr;
    std::string text;
};

const std::string IMMEDIATE_BODY = task_body({{"backupImmediately", "true"}});

// --- create -------------------------------------------------------------------------------------

TEST_F(TaskChange, CreateStoresAnnouncesAndLeavesAnEvent) {
    EXPECT_EQ(create(task_body()), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects(), (Calls{store_call(new_text()), notice_call(RELOAD_NOTICE),
                                      change_event("0x62040001")}));
    EXPECT_EQ(fake::debug_texts(), Strings{});
}

TEST_F(TaskChange, CreatedTaskIsNewAndEnabledWhateverTheBodySays) {
    EXPECT_EQ(create(task_body({{"enable", "false"},
                                {"status", "4"},
                                {"startTime", "\"1\""},
                                {"endTime", "\"2\""},
                                {"taskID", "\"3\""}})),
              0);
    EXPECT_EQ(fake::platform.stored, Strings{new_text()});
}

TEST_F(TaskChange, ImmediateCreateStartsTheLargestIdentifierAfterTheReload) {
    for (const char* id : {"3", "12", "7"}) store(id);
    EXPECT_EQ(create(IMMEDIATE_BODY), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects(),
              (Calls{store_call(new_text()), notice_call(RELOAD_NOTICE), change_event("0x62040001"),
                     READ_TASKS, notice_call(start_notice("12")), READ_FUSE_SWITCH,
                     start_event("Night copy")}));
}

TEST_F(TaskChange, ImmediateCreateSucceedsThoughTheStartFails) {
    fake::fail("__nvrcfg_get_rr_settings", 2);
    EXPECT_EQ(create(IMMEDIATE_BODY), 0);
    EXPECT_EQ(text, SUCCESS);
    fake::reset();
    fake::fail("ssci_PUT_request", -1, 2);
    EXPECT_EQ(create(IMMEDIATE_BODY), 0);
    EXPECT_EQ(text, SUCCESS);
}

TEST_F(TaskChange, FailedSettingEventDoesNotFailTheCreate) {
    fake::fail("send_surveillance_setting_log_with_username", 1);
    EXPECT_EQ(create(task_body()), 0);
    EXPECT_EQ(text, SUCCESS);
}

TEST_F(TaskChange, UnknownClientAndUserAreHandedOnAsTheyAre) {
    __ip = nullptr;
    __user = "a \"user\"";
    EXPECT_EQ(create(task_body()), 0);
    EXPECT_EQ(fake::effects()[2].args, (Strings{"0x62040001", "-1", "(null)", "a \"user\"",
                                                "Recording Backup", "Night copy"}));
}

TEST_F(TaskChange, EventCarriesTheNameAsTheClientSentIt) {
    EXPECT_EQ(create(task_body({{"taskName", R"("a\"b\\c\nd%s")"}})), 0);
    EXPECT_EQ(fake::effects()[2].args.back(), "a\"b\\c\nd%s");
}

// --- create: the failure table ------------------------------------------------------------------

TEST_F(TaskChange, RefusedBodyStoresNothingAndLeavesNoEvent) {
    EXPECT_EQ(create(task_body({{"port", ABSENT}})), CGI_PARSER_JSON_FAIL);
    EXPECT_EQ(text, error_reply("2500460549.0", MESSAGE));
    EXPECT_EQ(fake::effects(), Calls{});
    EXPECT_EQ(fake::debug_texts(),
              (Strings{"parser json fail\n", "parser_task fail\n", "error code = 2500460549\n"}));
}

TEST_F(TaskChange, EveryParserCodeReachesTheReply) {
    EXPECT_EQ(create("no json"), CGI_INPUT_FORMAT_ERROR);
    EXPECT_EQ(text, error_reply("2500460548.0", MESSAGE));
    EXPECT_EQ(create(task_body({{"scheduleType", "\"Daily\""}})), CGI_INVALID_VALUE);
    EXPECT_EQ(text, error_reply("2500460550.0", MESSAGE));
    EXPECT_EQ(fake::effects(), Calls{});
}

TEST_F(TaskChange, MissingBodyIsAnInputFormatError) {
    EXPECT_EQ(finish(create_backup_task(&reply, nullptr)), CGI_INPUT_FORMAT_ERROR);
    EXPECT_EQ(text, error_reply("2500460548.0", MESSAGE));
    EXPECT_EQ(finish(modify_backup_task(&reply, nullptr, "12")), CGI_INPUT_FORMAT_ERROR);
    EXPECT_EQ(text, error_reply("2500460548.0", MESSAGE));
    EXPECT_EQ(fake::effects(), Calls{});
}

TEST_F(TaskChange, RefusedImmediateBodyStartsNothing) {
    EXPECT_EQ(create(task_body({{"backupImmediately", "true"}, {"remoteOverwriteType", "\"x\""}})),
              CGI_INVALID_VALUE);
    EXPECT_EQ(modify(task_body({{"backupImmediately", "true"}, {"remoteOverwriteType", "\"x\""}})),
              CGI_INVALID_VALUE);
    EXPECT_EQ(fake::effects(), Calls{});
}

TEST_F(TaskChange, FailedSettingsTextGivesItsStatus) {
    linked_failures.settings_text = -77;
    EXPECT_EQ(create(task_body()), -77);
    EXPECT_EQ(text, error_reply("-77.0", MESSAGE));
    EXPECT_EQ(fake::effects(), Calls{});
    EXPECT_EQ(fake::debug_texts(), (Strings{"parser_task fail\n", "error code = -77\n"}));
}

TEST_F(TaskChange, StoresRefusalGivesItsStatus) {
    fake::fail("__nvrcfg_set_rr_settings", NVRCFG_BUSY);
    EXPECT_EQ(create(task_body()), NVRCFG_BUSY);
    EXPECT_EQ(text, error_reply("2.0", MESSAGE));
    EXPECT_EQ(fake::effects(), Calls{store_call(new_text())});
    EXPECT_EQ(fake::debug_texts(), (Strings{"nvrcfg_set_rr_settings fail\n", "error code = 2\n"}));
}

TEST_F(TaskChange, NameWithQuotationMarksIsHandedOnBareAndRefusedByTheStore) {
    fake::fail("__nvrcfg_set_rr_settings", NVRCFG_BAD_MEMBER);
    const std::string body = task_body({{"taskName", R"("x\",\"taskID\":\"3")"}});
    const auto with_name = [](std::string settings) {
        return settings.replace(settings.find("Night copy"), 10, R"(x","taskID":"3)");
    };
    EXPECT_EQ(create(body), NVRCFG_BAD_MEMBER);
    EXPECT_EQ(text, error_reply("4.0", MESSAGE));
    EXPECT_EQ(fake::effects(), Calls{store_call(with_name(new_text()))});
    EXPECT_EQ(modify(body), NVRCFG_BAD_MEMBER);
    EXPECT_EQ(text, error_reply("4.0", MESSAGE));
    EXPECT_EQ(fake::effects(), (Calls{store_call(with_name(new_text())), READ_TASKS,
                                      store_call(with_name(changed_text()))}));
}

TEST_F(TaskChange, ImmediateCreateThatTheStoreRefusesStartsTheLargestOlderTask) {
    store("7");
    fake::fail("__nvrcfg_set_rr_settings", NVRCFG_BUSY);
    EXPECT_EQ(create(IMMEDIATE_BODY), NVRCFG_BUSY);
    EXPECT_EQ(text, error_reply("2.0", MESSAGE));
    EXPECT_EQ(fake::effects(),
              (Calls{store_call(new_text()), READ_TASKS, notice_call(start_notice("7")),
                     READ_FUSE_SWITCH, start_event("Night copy")}));
}

TEST_F(TaskChange, DaemonThatIsDownFailsTheCreateButTheTaskStaysStored) {
    fake::fail("ssci_PUT_request", -1);
    EXPECT_EQ(create(task_body()), CGI_CHANGE_STATUS_ERROR);
    EXPECT_EQ(text, error_reply("2500460578.0", MESSAGE));
    EXPECT_EQ(fake::platform.stored, Strings{new_text()});
    EXPECT_EQ(fake::effects(), (Calls{store_call(new_text()), notice_call(RELOAD_NOTICE)}));
    EXPECT_EQ(fake::debug_texts(), (Strings{"SSCI put fail\n", "notify_dataBackupd fail\n",
                                            "error code = 2500460578\n"}));
}

TEST_F(TaskChange, DaemonThatIsDownStillGetsTheStartNoticeSilently) {
    store("7");
    fake::fail("ssci_PUT_request", -1);
    EXPECT_EQ(create(IMMEDIATE_BODY), CGI_CHANGE_STATUS_ERROR);
    EXPECT_EQ(text, error_reply("2500460578.0", MESSAGE));
    EXPECT_EQ(fake::effects(), (Calls{store_call(new_text()), notice_call(RELOAD_NOTICE),
                                      READ_TASKS, notice_call(start_notice("7"))}));
}

TEST_F(TaskChange, AnyOtherExceptionBecomesCode0AndNothingEscapes) {
    for (const char* call : {"__nvrcfg_set_rr_settings", "ssci_PUT_request"}) {
        fake::reset();
        fake::throw_from(call);
        EXPECT_NO_THROW(create(IMMEDIATE_BODY)) << call;
        EXPECT_EQ(text, error_reply("0.0", MESSAGE)) << call;
        EXPECT_NO_THROW(modify(IMMEDIATE_BODY)) << call;
        EXPECT_EQ(text, error_reply("0.0", MESSAGE)) << call;
    }
}

TEST_F(TaskChange, ExceptionInTheLastStepChangesNothing) {
    fake::throw_from("send_surveillance_event_log");
    int result = -1;
    EXPECT_NO_THROW(result = create(IMMEDIATE_BODY));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(text, SUCCESS);
}

// --- modify -------------------------------------------------------------------------------------

TEST_F(TaskChange, ModifyStoresAnnouncesAndLeavesAnEvent) {
    EXPECT_EQ(modify(task_body()), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects(), (Calls{READ_TASKS, store_call(changed_text()),
                                      notice_call(RELOAD_NOTICE), change_event("0x62040002")}));
    EXPECT_EQ(fake::debug_texts(), Strings{});
}

TEST_F(TaskChange, ImmediateModifyStartsThePathsTaskWithoutReadingTheList) {
    for (const char* id : {"3", "99"}) store(id);
    EXPECT_EQ(modify(IMMEDIATE_BODY, "12"), 0);
    EXPECT_EQ(fake::effects(),
              (Calls{READ_TASKS, store_call(changed_text()), notice_call(RELOAD_NOTICE),
                     change_event("0x62040002"), notice_call(start_notice("12")), READ_FUSE_SWITCH,
                     start_event("Night copy")}));
}

TEST_F(TaskChange, BodyCannotChooseTheTaskToModify) {
    EXPECT_EQ(modify(task_body({{"taskID", "\"99\""}})), 0);
    EXPECT_EQ(fake::platform.stored, Strings{changed_text()});
}

TEST_F(TaskChange, ModifyEnablesADisabledTask) {
    store("12", 4, false);
    EXPECT_EQ(modify(task_body({{"enable", "false"}})), 0);
    EXPECT_EQ(fake::platform.stored, Strings{changed_text()});
}

TEST_F(TaskChange, ModifyMakesAFinishedTaskNew) {
    for (const int status : {TASK_SUCCESS, TASK_CANCEL, TASK_FAILED}) {
        fake::reset();
        store("12", status);
        EXPECT_EQ(modify(task_body()), 0);
        EXPECT_EQ(fake::platform.stored,
                  Strings{stored_text(R"("taskID": "12", "status": 1, "enable": true)")});
    }
}

TEST_F(TaskChange, ModifyWithoutBackupDaysIsAnInvalidValue) {
    EXPECT_EQ(modify(task_body({{"backupDays", ABSENT}})), CGI_INVALID_VALUE);
    EXPECT_EQ(text, error_reply("2500460550.0", MESSAGE));
    EXPECT_EQ(fake::effects(), Calls{});
}

TEST_F(TaskChange, ModifyWithoutIdentifierHandsAnEmptyOneToTheStore) {
    EXPECT_EQ(modify(task_body(), nullptr), 0);
    EXPECT_EQ(fake::platform.stored, Strings{stored_text(R"("taskID": "", "enable": true)")});
}

TEST_F(TaskChange, UnreadableListHandsAnEmptyTextToTheStoreWhichDecides) {
    fake::fail("__nvrcfg_get_rr_settings", NVRCFG_UNAVAILABLE);
    EXPECT_EQ(modify(task_body()), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::platform.stored, Strings{""});
    fake::fail("__nvrcfg_set_rr_settings", NVRCFG_BAD_TEXT);
    EXPECT_EQ(modify(task_body()), NVRCFG_BAD_TEXT);
    EXPECT_EQ(text, error_reply("3.0", MESSAGE));
}

// --- modify: the failure table ------------------------------------------------------------------

TEST_F(TaskChange, ModifyWithARefusedBodyStoresNothing) {
    EXPECT_EQ(modify("{}"), CGI_PARSER_JSON_FAIL);
    EXPECT_EQ(text, error_reply("2500460549.0", MESSAGE));
    EXPECT_EQ(fake::effects(), Calls{});
    EXPECT_EQ(fake::debug_texts(),
              (Strings{"parser json fail\n", "parser_task fail\n", "error code = 2500460549\n"}));
}

TEST_F(TaskChange, ModifyWithAFailedSettingsTextGivesItsStatus) {
    linked_failures.settings_text = 5;
    EXPECT_EQ(modify(task_body()), 5);
    EXPECT_EQ(text, error_reply("5.0", MESSAGE));
    EXPECT_EQ(fake::debug_texts(), (Strings{"parser_task fail\n", "error code = 5\n"}));
}

TEST_F(TaskChange, ModifyOfATaskThatTheStoreDoesNotKnowGivesItsStatus) {
    fake::fail("__nvrcfg_set_rr_settings", NVRCFG_UNKNOWN_TASK);
    EXPECT_EQ(modify(task_body()), NVRCFG_UNKNOWN_TASK);
    EXPECT_EQ(text, error_reply("5.0", MESSAGE));
    EXPECT_EQ(fake::effects(), (Calls{READ_TASKS, store_call(changed_text())}));
    EXPECT_EQ(fake::debug_texts(), (Strings{"nvrcfg_set_rr_settings fail\n", "error code = 5\n"}));
}

TEST_F(TaskChange, DaemonThatIsDownFailsTheModifyButTheChangeStaysStored) {
    fake::fail("ssci_PUT_request", 503);
    EXPECT_EQ(modify(IMMEDIATE_BODY), CGI_CHANGE_STATUS_ERROR);
    EXPECT_EQ(text, error_reply("2500460578.0", MESSAGE));
    EXPECT_EQ(fake::platform.stored, Strings{changed_text()});
    EXPECT_EQ(fake::effects(),
              (Calls{READ_TASKS, store_call(changed_text()), notice_call(RELOAD_NOTICE),
                     notice_call(start_notice("12"))}));
}

// --- names --------------------------------------------------------------------------------------

class TaskName : public TaskChange {
protected:
    /// What the store receives in front of "serverIP" for a name given as JSON.
    std::string stored_name(const std::string& json) {
        EXPECT_EQ(create(task_body({{"taskName", json}})), 0) << json;
        const std::string stored = fake::platform.stored.back();
        return stored.substr(0, stored.find(", \"serverIP\""));
    }
};

TEST_F(TaskName, QuoteLosesItsEscape) {
    EXPECT_EQ(stored_name(R"("a\"b")"), R"({ "taskName": "a"b")");
}

TEST_F(TaskName, BackslashStaysSingle) {
    EXPECT_EQ(stored_name(R"("a\\b")"), R"({ "taskName": "a\b")");
}

TEST_F(TaskName, ControlCharactersBecomeLetters) {
    EXPECT_EQ(stored_name(R"("a\nb\u0001c")"), R"({ "taskName": "anbu0001c")");
}

TEST_F(TaskName, NulEndsTheName) {
    EXPECT_EQ(stored_name(R"("a\u0000b")"), R"({ "taskName": "a")");
}

TEST_F(TaskName, InvalidUtf8StaysAsItIs) {
    EXPECT_EQ(stored_name("\"a\xff"
                          "b\""),
              "{ \"taskName\": \"a\xff"
              "b\"");
}

TEST_F(TaskName, LongNameIsCutTo255Characters) {
    EXPECT_EQ(stored_name("\"" + std::string(10000, 'n') + "\""),
              "{ \"taskName\": \"" + std::string(255, 'n') + "\"");
}

}  // namespace
