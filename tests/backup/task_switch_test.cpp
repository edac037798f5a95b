// Tests of enabling, disabling and deleting a task: order of the steps, messages, events, failures.
#include "backup/task_switch.h"

#include <json-c/json.h>

#include "backup/recording_backup_function.h"
#include "cgi/result_code.h"
#include "platform/nvrcfg.h"
#include "tests/backup/daemon_messages.h"
#include "tests/support/fake_platform/platform_test.h"

namespace {

using Calls = std::vector<fake::Call>;

constexpr char ENABLE_FAILED[] = "Insert task to database fail.";
constexpr char DELETE_FAILED[] = "Delete task fail.";
constexpr char SUCCESS[] = R"({ "ret_code": 0, "mesg": "Success." })";
constexpr char ENABLED[] = R"({ "taskID": "7", "enable": true })";
constexpr char DISABLED[] = R"({ "taskID": "7", "enable": false })";

const fake::Call STOP = notice_call(
    R"({ "notice_reason": { "type": 1030, "action": 1 }, "task_info": { "start_task": false } })");

fake::Call deletion(const std::string& task_id) {
    return {"ssci_DELETE_request",
            {"127.0.0.1", "10141", "/cfg/DataBackupService", "taskID=" + task_id, "5", "false",
             "false", "0", "(null)"}};
}

fake::Call change_event(const std::string& event, const std::string& name = "Doors") {
    return {"send_surveillance_setting_log_with_username",
            {event, "-1", "198.51.100.9", "admin", "Recording Backup", name}};
}

class TaskSwitch : public OperationTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        __ip = "198.51.100.9";
        __user = "admin";
        store_task();
    }

    /// Task 7, "Doors".
    static void store_task() {
        TDataBackupConfig task;
        task.taskID = "7";
        task.taskName = "Doors";
        fake::platform.tasks = {task};
    }

    static void start_over() {
        fake::reset();
        store_task();
    }

    int enable(const char* body, const char* id = "7") {
        return finish(change_is_enable(&reply, body, id));
    }

    int remove(const char* is_stop, const char* id = "7") {
        return finish(delete_backup_task(&reply, id, is_stop));
    }
};

// --- enable and disable --------------------------------------------------------------------------

TEST_F(TaskSwitch, EnableStoresTwoMembersAnnouncesAndLeavesAnEvent) {
    EXPECT_EQ(enable(R"({"is_enable": true})"), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects(), (Calls{store_call(ENABLED), notice_call(RELOAD_NOTICE), READ_TASKS,
                                      change_event("0x62040004")}));
    EXPECT_EQ(fake::debug_texts(), Strings{"pjsonSetTaskObj = " + std::string(ENABLED) + "\n"});
}

TEST_F(TaskSwitch, DisableStoresTheIdentifierAsTextAndLeavesItsOwnEvent) {
    EXPECT_EQ(enable(R"({"is_enable": false})"), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects(), (Calls{store_call(DISABLED), notice_call(RELOAD_NOTICE), READ_TASKS,
                                      change_event("0x62040005")}));
    EXPECT_EQ(fake::debug_texts(), Strings{"pjsonSetTaskObj = " + std::string(DISABLED) + "\n"});
}

TEST_F(TaskSwitch, OtherMembersOfTheBodyHaveNoSay) {
    EXPECT_EQ(enable(R"({"taskID": "9", "enable": true, "is_enable": false, "taskName": "x"})"), 0);
    EXPECT_EQ(fake::platform.stored, Strings{DISABLED});
}

TEST_F(TaskSwitch, EnableOfATaskWithoutANameLeavesAnEventWithAnEmptyOne) {
    EXPECT_EQ(enable(R"({"is_enable": true})", "8"), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects().back(), change_event("0x62040004", ""));
}

TEST_F(TaskSwitch, UnreadableTaskListOnlyCostsTheEventItsName) {
    fake::fail("__nvrcfg_get_rr_settings", NVRCFG_UNAVAILABLE);
    EXPECT_EQ(enable(R"({"is_enable": true})"), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects().back(), change_event("0x62040004", ""));
}

TEST_F(TaskSwitch, StrangeIdentifierStaysOneTextMember) {
    EXPECT_EQ(enable(R"({"is_enable": true})", R"(7", "port": 1, "x": "%s)"), 0);
    EXPECT_EQ(fake::platform.stored,
              Strings{R"({ "taskID": "7\", \"port\": 1, \"x\": \"%s", "enable": true })"});
}

TEST_F(TaskSwitch, EnableWithoutIdentifierHandsAnEmptyOneToTheStore) {
    EXPECT_EQ(enable(R"({"is_enable": true})", nullptr), 0);
    EXPECT_EQ(fake::platform.stored, Strings{R"({ "taskID": "", "enable": true })"});
}

TEST_F(TaskSwitch, EventOfUnknownClientAndUserIsHandedOnAsItIs) {
    __ip = nullptr;
    __user = "a \"user\"";
    EXPECT_EQ(enable(R"({"is_enable": true})"), 0);
    EXPECT_EQ(fake::effects().back().args,
              (Strings{"0x62040004", "-1", "(null)", "a \"user\"", "Recording Backup", "Doors"}));
}

TEST_F(TaskSwitch, EventThatCannotBeStoredDoesNotFailTheChange) {
    fake::fail("send_surveillance_setting_log_with_username", -1);
    EXPECT_EQ(enable(R"({"is_enable": true})"), 0);
    EXPECT_EQ(text, SUCCESS);
}

// --- enable: the failures ------------------------------------------------------------------------

TEST_F(TaskSwitch, EnableWithoutABodyLeavesTheReplyUnset) {
    EXPECT_EQ(change_is_enable(&reply, nullptr, "7"), CGI_INPUT_FORMAT_ERROR);
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(fake::effects(), Calls{});
    EXPECT_EQ(fake::debug_texts(), Strings{"input format error\n"});
}

TEST_F(TaskSwitch, EnableWithABodyThatIsNotJsonLeavesTheReplyUnset) {
    for (const char* body : {"", "x", "{", R"({"is_enable": )", "null", "\xff\xfe"}) {
        start_over();
        EXPECT_EQ(change_is_enable(&reply, body, "7"), CGI_INPUT_FORMAT_ERROR) << body;
        EXPECT_EQ(reply, nullptr) << body;
        EXPECT_EQ(fake::effects(), Calls{}) << body;
        EXPECT_EQ(fake::debug_texts(), Strings{"json_tokener_parse fail\n"}) << body;
    }
}

TEST_F(TaskSwitch, EnableWithoutIsEnableIsAParseFailure) {
    for (const char* body :
         {R"({"enable": true})", "{}", "[]", "5", "\"is_enable\"", R"({"IS_ENABLE": true})",
          R"({"is_enable": 1})", R"({"is_enable": "true"})", R"({"is_enable": null})"}) {
        start_over();
        EXPECT_EQ(enable(body), CGI_PARSER_JSON_FAIL) << body;
        EXPECT_EQ(text, error_reply("2500460549.0", ENABLE_FAILED)) << body;
        EXPECT_EQ(fake::effects(), Calls{}) << body;
        EXPECT_EQ(fake::debug_texts(), (Strings{"parser json fail\n", "error code = 2500460549\n"}))
            << body;
    }
}

TEST_F(TaskSwitch, StoresRefusalGivesItsStatusAndSendsNothing) {
    fake::fail("__nvrcfg_set_rr_settings", NVRCFG_UNKNOWN_TASK);
    EXPECT_EQ(enable(R"({"is_enable": true})"), NVRCFG_UNKNOWN_TASK);
    EXPECT_EQ(text, error_reply("5.0", ENABLE_FAILED));
    EXPECT_EQ(fake::effects(), Calls{store_call(ENABLED)});
    EXPECT_EQ(fake::debug_texts(), (Strings{"pjsonSetTaskObj = " + std::string(ENABLED) + "\n",
                                            "nvrcfg_set_rr_settings fail\n", "error code = 5\n"}));
}

TEST_F(TaskSwitch, NegativeStatusOfTheStorePassesThrough) {
    fake::fail("__nvrcfg_set_rr_settings", -77);
    EXPECT_EQ(enable(R"({"is_enable": true})"), -77);
    EXPECT_EQ(text, error_reply("-77.0", ENABLE_FAILED));
}

TEST_F(TaskSwitch, DaemonThatIsDownFailsTheEnableButTheChangeStaysStored) {
    fake::fail("ssci_PUT_request", -1);
    EXPECT_EQ(enable(R"({"is_enable": false})"), CGI_CHANGE_STATUS_ERROR);
    EXPECT_EQ(text, error_reply("2500460578.0", ENABLE_FAILED));
    EXPECT_EQ(fake::platform.stored, Strings{DISABLED});
    EXPECT_EQ(fake::effects(), (Calls{store_call(DISABLED), notice_call(RELOAD_NOTICE)}));
    EXPECT_EQ(fake::debug_texts(),
              (Strings{"pjsonSetTaskObj = " + std::string(DISABLED) + "\n", "SSCI put fail\n",
                       "notify_dataBackupd fail\n", "error code = 2500460578\n"}));
}

TEST_F(TaskSwitch, DaemonsAnswerToTheReloadIsNotLookedAt) {
    fake::answer("ssci_PUT_request", R"({"retCode": 500})");
    EXPECT_EQ(enable(R"({"is_enable": true})"), 0);
    EXPECT_EQ(text, SUCCESS);
}

TEST_F(TaskSwitch, AnyOtherExceptionInAnEnableBecomesCode0) {
    for (const char* call : {"__nvrcfg_set_rr_settings", "ssci_PUT_request"}) {
        start_over();
        fake::throw_from(call);
        EXPECT_NO_THROW(enable(R"({"is_enable": true})")) << call;
        EXPECT_EQ(text, error_reply("0.0", ENABLE_FAILED)) << call;
    }
}

// --- delete --------------------------------------------------------------------------------------

TEST_F(TaskSwitch, DeleteLooksTheNameUpFirstAsksTheServiceAndLeavesAnEvent) {
    EXPECT_EQ(remove("0"), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects(), (Calls{READ_TASKS, deletion("7"), change_event("0x62040003")}));
    EXPECT_EQ(fake::debug_texts(), Strings{});
}

TEST_F(TaskSwitch, DeleteWithStopSendsTheStopNoticeBeforeTheDeletion) {
    EXPECT_EQ(remove("1"), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects(),
              (Calls{READ_TASKS, STOP, deletion("7"), change_event("0x62040003")}));
}

TEST_F(TaskSwitch, IsStopIsTheNumberAtItsBeginning) {
    for (const char* stops : {"1", "-1", "2", " 1", "+1", "1x", "99999999999999999999"}) {
        start_over();
        EXPECT_EQ(remove(stops), 0);
        EXPECT_EQ(fake::effects()[1], STOP) << stops;
    }
    for (const char* keeps : {"0", "", "true", "yes", "x1", "00", "0x1", "0.9"}) {
        start_over();
        EXPECT_EQ(remove(keeps), 0);
        EXPECT_EQ(fake::effects()[1], deletion("7")) << keeps;
    }
}

TEST_F(TaskSwitch, DeleteOfAnUnknownTaskThatTheDaemonAcceptsSucceedsWithAnEmptyName) {
    EXPECT_EQ(remove("0", "8"), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects(), (Calls{READ_TASKS, deletion("8"), change_event("0x62040003", "")}));
}

TEST_F(TaskSwitch, UnreadableTaskListDoesNotKeepATaskFromBeingDeleted) {
    fake::fail("__nvrcfg_get_rr_settings", NVRCFG_BUSY);
    EXPECT_EQ(remove("1"), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects(),
              (Calls{READ_TASKS, STOP, deletion("7"), change_event("0x62040003", "")}));
}

TEST_F(TaskSwitch, IdentifierGoesToTheServiceAsItStandsInThePath) {
    for (const char* id : {"15abc", "a b&c=d", "", "007"}) {
        start_over();
        EXPECT_EQ(remove("0", id), 0);
        EXPECT_EQ(fake::effects()[1], deletion(id));
    }
}

TEST_F(TaskSwitch, DeleteWithoutIdentifierAsksForAnEmptyOne) {
    EXPECT_EQ(remove("0", nullptr), 0);
    EXPECT_EQ(fake::effects()[1], deletion(""));
}

TEST_F(TaskSwitch, DeleteNeitherTouchesTheStoreNorAnnouncesAReload) {
    EXPECT_EQ(remove("1"), 0);
    EXPECT_EQ(fake::platform.stored, Strings{});
    for (const fake::Call& call : fake::calls_of("ssci_PUT_request")) EXPECT_EQ(call, STOP);
}

TEST_F(TaskSwitch, ContentOfTheServicesReplyIsNotRead) {
    for (const char* answer : {"", "no json", R"({"retCode": 500})"}) {
        start_over();
        fake::answer("ssci_DELETE_request", answer);
        EXPECT_EQ(remove("0"), 0);
        EXPECT_EQ(text, SUCCESS) << answer;
        EXPECT_EQ(fake::effects().back(), change_event("0x62040003")) << answer;
    }
}

// --- delete: the failures, all with result 0 -----------------------------------------------------

TEST_F(TaskSwitch, FailedStopNoticeDeletesNothingAndResultStaysZero) {
    fake::fail("ssci_PUT_request", -2);
    EXPECT_EQ(remove("1"), 0);
    EXPECT_EQ(text, error_reply("2500460578.0", DELETE_FAILED));
    EXPECT_EQ(fake::effects(), (Calls{READ_TASKS, STOP}));
    EXPECT_EQ(fake::debug_texts(),
              (Strings{"CGI_CHANGE_STATUS_ERROR SSCI fail\n", "error code = 2500460578\n"}));
}

TEST_F(TaskSwitch, FailedDeletionRepliesTheClientsOwnStatusAndResultStaysZero) {
    for (const auto& [status, shown] : {std::pair(-1, "-1"), {-2, "-2"}, {404, "404"}}) {
        start_over();
        fake::fail("ssci_DELETE_request", status);
        EXPECT_EQ(remove("0"), 0);
        EXPECT_EQ(text, error_reply(shown + std::string(".0"), DELETE_FAILED));
        EXPECT_EQ(fake::effects(), (Calls{READ_TASKS, deletion("7")}));
        EXPECT_EQ(fake::debug_texts(),
                  (Strings{"SSCI_GET fail\n", "error code = " + std::string(shown) + "\n"}));
    }
}

TEST_F(TaskSwitch, FailedDeletionAfterTheStopLeavesNoEvent) {
    fake::fail("ssci_DELETE_request", 500);
    EXPECT_EQ(remove("1"), 0);
    EXPECT_EQ(text, error_reply("500.0", DELETE_FAILED));
    EXPECT_EQ(fake::effects(), (Calls{READ_TASKS, STOP, deletion("7")}));
}

TEST_F(TaskSwitch, NoReplyTextAtAllIsAFailureAndAnEmptyOneIsNot) {
    EXPECT_EQ(check_delete_reply(nullptr), CGI_SSCI_RESPONSE_NULL);
    EXPECT_EQ(fake::debug_texts(), Strings{"SSCI response is NULL\n"});
    EXPECT_EQ(check_delete_reply(""), 0);
    EXPECT_EQ(check_delete_reply("x"), 0);
}

TEST_F(TaskSwitch, AnyOtherExceptionInADeleteBecomesCode0) {
    for (const char* call :
         {"__nvrcfg_get_rr_settings", "ssci_PUT_request", "ssci_DELETE_request"}) {
        start_over();
        fake::throw_from(call);
        int result = -1;
        EXPECT_NO_THROW(result = remove("1")) << call;
        EXPECT_EQ(result, 0) << call;
        EXPECT_EQ(text, error_reply("0.0", DELETE_FAILED)) << call;
    }
}

}  // namespace
