// Tests of starting, stopping and forcing a task: what is asked, sent, replied and written down.
#include <json-c/json.h>

#include "backup/recording_backup_function.h"
#include "cgi/result_code.h"
#include "platform/nvrcfg.h"
#include "tests/backup/daemon_messages.h"
#include "tests/support/fake_platform/platform_test.h"

namespace {

using Calls = std::vector<fake::Call>;

constexpr char ACTIVE_FAILED[] = "Active task fail.";
constexpr char FORCE_FAILED[] = "Force active task fail.";
constexpr char SUCCESS[] = R"({ "ret_code": 0, "mesg": "Success." })";
constexpr char DONE[] = R"({ "ret_code": 0, "mesg": "Success.", "has_running_task": false, )"
                        R"("isFUSE": true, "taskID": "", "taskName": "" })";
constexpr char EXPLORER_OFF[] =
    R"({ "ret_code": 0, "mesg": "Success.", "has_running_task": false, )"
    R"("isFUSE": false, "taskID": "", "taskName": "" })";
constexpr char START[] = R"({"is_active": true})";
constexpr char STOP[] = R"({"is_active": false})";
constexpr char PREEMPT[] = R"({"is_force_running": true})";
constexpr char DOORS_RUN[] = R"({"retCode": 0, "runningTask_info": [{"taskID": "3"}]})";

const fake::Call RUNNING = query_call("get_runningTask_info");

std::string refused(const std::string& id, const std::string& name) {
    return R"({ "ret_code": 0, "mesg": "Success.", "has_running_task": true, "isFUSE": true, )"
           R"("taskID": ")" +
           id + R"(", "taskName": ")" + name + R"(" })";
}

fake::Call task_notice(const std::string& task_info) {
    return notice_call(R"({ "notice_reason": { "type": 1030, "action": 1 }, "task_info": { )" +
                       task_info + " } }");
}

fake::Call active_notice(const std::string& start, const std::string& id = "12") {
    return task_notice(R"("start_task": )" + start + R"(, "taskID": )" + id +
                       R"(, "is_parallel_running": false, "stop_running_task": true)");
}

fake::Call force_notice(const std::string& stop, const std::string& parallel,
                        const std::string& id = "12") {
    return task_notice(R"("start_task": true, "taskID": )" + id + R"(, "stop_running_task": )" +
                       stop + R"(, "is_parallel_running": )" + parallel);
}

fake::Call run_event(const std::string& event, const Strings& names) {
    Strings args = {event, "-1", "127.0.0.1", "Recording Backup"};
    args.insert(args.end(), names.begin(), names.end());
    return {"send_surveillance_event_log", args};
}

class TaskActivation : public OperationTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        start_over();
    }

    static void store(const char* id, const char* name) {
        TDataBackupConfig task;
        task.taskID = id;
        task.taskName = name;
        fake::platform.tasks.push_back(task);
    }

    /// Tasks 3 "Doors", 5 "Yard" and 12 "Night copy"; nothing runs.
    static void start_over() {
        fake::reset();
        store("3", "Doors");
        store("5", "Yard");
        store("12", "Night copy");
    }

    static void daemon_says(const std::string& answer) {
        fake::platform.query_replies["get_runningTask_info"] = answer;
    }

    int activate(const char* body, const char* id = "12") {
        return finish(active_recording_task(&reply, body, id));
    }

    int force(const char* body, const char* id = "12") {
        return finish(force_active_recording_task(&reply, body, id));
    }
};

// --- activate ------------------------------------------------------------------------------------

TEST_F(TaskActivation, StartAsksWhatRunsSendsItsNoticeAndLeavesAnEvent) {
    EXPECT_EQ(activate(START), 0);
    EXPECT_EQ(text, DONE);
    EXPECT_EQ(fake::effects(), (Calls{READ_FUSE_SWITCH, RUNNING, active_notice("true"), READ_TASKS,
                                      run_event("0x23150001", {"Night copy"})}));
    EXPECT_EQ(fake::debug_texts(), Strings{});
}

TEST_F(TaskActivation, StopIsNeverRefusedAndAsksNothing) {
    daemon_says(DOORS_RUN);
    EXPECT_EQ(activate(STOP), 0);
    EXPECT_EQ(text, DONE);
    EXPECT_EQ(fake::effects(), (Calls{READ_FUSE_SWITCH, active_notice("false"), READ_TASKS,
                                      run_event("0x23150002", {"Night copy"})}));
}

TEST_F(TaskActivation, StartIsRefusedWhileATaskRuns) {
    daemon_says(DOORS_RUN);
    EXPECT_EQ(activate(START), 0);
    EXPECT_EQ(text, refused("3", "Doors"));
    EXPECT_EQ(fake::effects(), (Calls{READ_FUSE_SWITCH, RUNNING, READ_TASKS}));
    EXPECT_EQ(fake::debug_texts(), Strings{});
}

TEST_F(TaskActivation, OfTwoRunningTasksTheRefusalNamesTheSecond) {
    daemon_says(R"({"retCode": 0, "runningTask_info": [{"taskID": "3"}, {"taskID": "5"}]})");
    EXPECT_EQ(activate(START), 0);
    EXPECT_EQ(text, refused("5", "Yard"));
    EXPECT_EQ(fake::calls_of("ssci_PUT_request"), Calls{});
}

TEST_F(TaskActivation, StartOfTheRunningTaskItselfIsRefusedAllTheSame) {
    daemon_says(DOORS_RUN);
    EXPECT_EQ(activate(START, "3"), 0);
    EXPECT_EQ(text, refused("3", "Doors"));
}

TEST_F(TaskActivation, RefusalByATaskThatIsNotStoredHasAnEmptyName) {
    daemon_says(R"({"retCode": 0, "runningTask_info": [{"taskID": "99"}]})");
    EXPECT_EQ(activate(START), 0);
    EXPECT_EQ(text, refused("99", ""));
    daemon_says(R"({"retCode": 0, "runningTask_info": [{"taskID": ""}]})");
    EXPECT_EQ(activate(START), 0);
    EXPECT_EQ(text, refused("", ""));
}

TEST_F(TaskActivation, RunningIdentifierIsCutToItsBuffer) {
    const std::string longest(511, '4');
    daemon_says(R"({"retCode": 0, "runningTask_info": [{"taskID": ")" + longest + R"(4444"}]})");
    EXPECT_EQ(activate(START), 0);
    EXPECT_EQ(text, refused(longest, ""));
}

TEST_F(TaskActivation, RunningTaskListThatIsMissingOrNoArrayCountsAsEmpty) {
    for (const char* rest :
         {"", R"(, "runningTask_info": {"taskID": "3"})", R"(, "runningTask_info": null)",
          R"(, "runningTask_info": "3")", R"(, "runningTask_info": 3)"}) {
        start_over();
        daemon_says(R"({"retCode": 0)" + std::string(rest) + "}");
        EXPECT_EQ(activate(START), 0) << rest;
        EXPECT_EQ(text, DONE) << rest;
        EXPECT_EQ(fake::effects()[2], active_notice("true")) << rest;
    }
}

TEST_F(TaskActivation, FileExplorerOffContactsNoDaemonAndLeavesItsEvent) {
    for (const char* body : {START, STOP, "{}", "[]", "5", R"({"is_active": "yes"})"}) {
        start_over();
        fake::platform.keys["fuse/fuse_enabled"] = "0";
        EXPECT_EQ(activate(body), 0) << body;
        EXPECT_EQ(text, EXPLORER_OFF) << body;
        EXPECT_EQ(fake::effects(),
                  (Calls{READ_FUSE_SWITCH, READ_TASKS, run_event("0x23170001", {"Night copy"})}))
            << body;
    }
}

TEST_F(TaskActivation, EventsOfATaskThatIsNotStoredHaveAnEmptyName) {
    EXPECT_EQ(activate(START, "99"), 0);
    EXPECT_EQ(fake::effects().back(), run_event("0x23150001", {""}));
    EXPECT_EQ(activate(STOP, "99"), 0);
    EXPECT_EQ(fake::effects().back(), run_event("0x23150002", {""}));
    fake::platform.keys["fuse/fuse_enabled"] = "0";
    EXPECT_EQ(activate(START, "99"), 0);
    EXPECT_EQ(fake::effects().back(), run_event("0x23170001", {""}));
}

TEST_F(TaskActivation, UnreadableTaskListOnlyCostsTheEventItsName) {
    fake::fail("__nvrcfg_get_rr_settings", NVRCFG_BUSY);
    EXPECT_EQ(activate(START), 0);
    EXPECT_EQ(text, DONE);
    EXPECT_EQ(fake::effects().back(), run_event("0x23150001", {""}));
}

TEST_F(TaskActivation, NoticesCarryTheIdentifierAsTheNumberAtItsBeginning) {
    for (const auto& [id, number] :
         {std::pair("15abc", "15"), {"abc", "0"}, {"", "0"}, {"-3", "-3"}, {"4294967297", "1"}}) {
        start_over();
        EXPECT_EQ(activate(START, id), 0);
        EXPECT_EQ(fake::effects()[2], active_notice("true", number)) << id;
        EXPECT_EQ(force(PREEMPT, id), 0);
        EXPECT_EQ(fake::calls_of("ssci_PUT_request")[1], force_notice("true", "false", number));
    }
}

TEST_F(TaskActivation, OperationsWithoutIdentifierSendZero) {
    EXPECT_EQ(activate(START, nullptr), 0);
    EXPECT_EQ(force(PREEMPT, nullptr), 0);
    EXPECT_EQ(fake::calls_of("ssci_PUT_request"),
              (Calls{active_notice("true", "0"), force_notice("true", "false", "0")}));
}

TEST_F(TaskActivation, NothingIsEverStored) {
    activate(START);
    activate(STOP);
    force(PREEMPT);
    EXPECT_EQ(fake::calls_of("__nvrcfg_set_rr_settings"), Calls{});
}

// --- activate: the failures ----------------------------------------------------------------------

TEST_F(TaskActivation, ActivateWithoutABodyIsAnInputFormatError) {
    EXPECT_EQ(activate(nullptr), CGI_INPUT_FORMAT_ERROR);
    EXPECT_EQ(text, error_reply("2500460548.0", ACTIVE_FAILED));
    EXPECT_EQ(fake::effects(), Calls{});
    EXPECT_EQ(fake::debug_texts(), (Strings{"input format error\n", "error code = 2500460548\n"}));
}

TEST_F(TaskActivation, ActivateWithABodyThatIsNotJsonIsAnInputFormatError) {
    for (const char* body : {"", "x", "{", "null"}) {
        start_over();
        fake::platform.keys["fuse/fuse_enabled"] = "0";  // the body is judged first
        EXPECT_EQ(activate(body), CGI_INPUT_FORMAT_ERROR) << body;
        EXPECT_EQ(text, error_reply("2500460548.0", ACTIVE_FAILED)) << body;
        EXPECT_EQ(fake::effects(), Calls{}) << body;
        EXPECT_EQ(fake::debug_texts(),
                  (Strings{"json_tokener_parse fail\n", "error code = 2500460548\n"}))
            << body;
    }
}

TEST_F(TaskActivation, ActivateWithoutIsActiveIsAParseFailure) {
    for (const char* body : {"{}", "[]", "5", R"({"is_active": 1})", R"({"is_active": "true"})",
                             R"({"is_active": null})", R"({"isActive": true})"}) {
        start_over();
        EXPECT_EQ(activate(body), CGI_PARSER_JSON_FAIL) << body;
        EXPECT_EQ(text, error_reply("2500460549.0", ACTIVE_FAILED)) << body;
        EXPECT_EQ(fake::effects(), Calls{READ_FUSE_SWITCH}) << body;
        EXPECT_EQ(fake::debug_texts(), (Strings{"parser json fail\n", "error code = 2500460549\n"}))
            << body;
    }
}

TEST_F(TaskActivation, ActivateFailsWhenTheDaemonCannotBeAsked) {
    fake::fail("ssci_GET_request", -2);
    EXPECT_EQ(activate(START), CGI_GET_BACKUP_RUNNING_INFO_ERROR);
    EXPECT_EQ(text, error_reply("2500460577.0", ACTIVE_FAILED));
    EXPECT_EQ(fake::effects(), (Calls{READ_FUSE_SWITCH, RUNNING}));
    EXPECT_EQ(fake::debug_texts(), (Strings{"CGI_GET_BACKUP_RUNNING_INFO_ERROR SSCI_GET fail\n",
                                            "error code = 2500460577\n"}));
}

// What the daemon can answer wrongly, and the debug line for it.
// (Nothing at all is worded differently by the two operations.)
struct BadAnswer {
    std::string answer;
    std::string line;
};

const std::vector<BadAnswer> BAD_ANSWERS = {
    {"no json", "json_tokener_parse fail"},
    {R"({"retCode": )", "json_tokener_parse fail"},
    {"null", "json_tokener_parse fail"},
    {std::string("\0{\"retCode\": 0}", 15), "json_tokener_parse fail"},
    {R"({"runningTask_info": []})", "parser json fail"},
    {R"({"retCode": "0", "runningTask_info": []})", "parser json fail"},
    {"[]", "parser json fail"},
    {"5", "parser json fail"},
    {R"({"retCode": 1})", "backup server error: get backup info faile."},
    {R"({"retCode": -1, "runningTask_info": [{"taskID": "3"}]})",
     "backup server error: get backup info faile."}};

TEST_F(TaskActivation, ActivateFailsWhenTheDaemonsAnswerCannotBeUsed) {
    for (const auto& [answer, line] : BAD_ANSWERS) {
        start_over();
        daemon_says(answer);
        EXPECT_EQ(activate(START), CGI_GET_BACKUP_RUNNING_INFO_ERROR) << answer;
        EXPECT_EQ(text, error_reply("2500460577.0", ACTIVE_FAILED)) << answer;
        EXPECT_EQ(fake::effects(), (Calls{READ_FUSE_SWITCH, RUNNING})) << answer;
        EXPECT_EQ(fake::debug_texts(), (Strings{"CGI_GET_BACKUP_RUNNING_INFO_ERROR " + line + "\n",
                                                "error code = 2500460577\n"}));
    }
}

TEST_F(TaskActivation, ActivateFailsWhenTheDaemonAnswersNothing) {
    daemon_says("");
    EXPECT_EQ(activate(START), CGI_GET_BACKUP_RUNNING_INFO_ERROR);
    EXPECT_EQ(text, error_reply("2500460577.0", ACTIVE_FAILED));
    EXPECT_EQ(fake::debug_texts(), (Strings{"CGI_GET_BACKUP_RUNNING_INFO_ERROR SSCI respone is \n",
                                            "error code = 2500460577\n"}));
}

TEST_F(TaskActivation, RunningTaskWithoutIdentifierFailsBothOperations) {
    for (const char* element : {"{}", R"({"taskID": 3})", "null", "5", "[]"}) {
        start_over();
        daemon_says(R"({"retCode": 0, "runningTask_info": [{"taskID": "3"}, )" +
                    std::string(element) + "]}");
        EXPECT_EQ(activate(START), CGI_PARSER_JSON_FAIL) << element;
        EXPECT_EQ(text, error_reply("2500460549.0", ACTIVE_FAILED)) << element;
        EXPECT_EQ(fake::debug_texts(),
                  (Strings{"parser_task fail\n", "error code = 2500460549\n"}));
        EXPECT_EQ(force(PREEMPT), CGI_PARSER_JSON_FAIL) << element;
        EXPECT_EQ(text, error_reply("2500460549.0", FORCE_FAILED)) << element;
        EXPECT_EQ(fake::calls_of("ssci_PUT_request"), Calls{}) << element;
        EXPECT_EQ(fake::calls_of("send_surveillance_event_log"), Calls{}) << element;
    }
}

TEST_F(TaskActivation, NoticeThatCannotBeSentFailsTheActivateWithoutEvent) {
    for (const auto& [body, start] : {std::pair(START, "true"), {STOP, "false"}}) {
        start_over();
        fake::fail("ssci_PUT_request", -1);
        EXPECT_EQ(activate(body), CGI_CHANGE_STATUS_ERROR);
        EXPECT_EQ(text, error_reply("2500460578.0", ACTIVE_FAILED));
        EXPECT_EQ(fake::effects().back(), active_notice(start));
        EXPECT_EQ(fake::debug_texts(), (Strings{"SSCI fail\n", "error code = 2500460578\n"}));
    }
}

TEST_F(TaskActivation, AnyOtherExceptionInAnActivateBecomesCode0) {
    for (const char* call : {"__nvrcfg_get_key_value", "ssci_GET_request", "ssci_PUT_request"}) {
        start_over();
        fake::throw_from(call);
        EXPECT_NO_THROW(activate(START)) << call;
        EXPECT_EQ(text, error_reply("0.0", ACTIVE_FAILED)) << call;
    }
}

// --- force ---------------------------------------------------------------------------------------

std::string reply_line(const std::string& answer) {
    return "strRunningInfoResponse:" + answer + "\n";
}

TEST_F(TaskActivation, ForceStopsWhatRunsAndLeavesAnEventWithBothNames) {
    daemon_says(DOORS_RUN);
    EXPECT_EQ(force(PREEMPT), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects(),
              (Calls{RUNNING, force_notice("true", "false"), READ_TASKS, READ_TASKS,
                     run_event("0x23150003", {"Night copy", "Doors"})}));
    EXPECT_EQ(fake::debug_texts(), Strings{reply_line(DOORS_RUN)});
}

TEST_F(TaskActivation, ForceOverTwoRunningTasksNamesTheSecond) {
    daemon_says(R"({"retCode": 0, "runningTask_info": [{"taskID": "3"}, {"taskID": "5"}]})");
    EXPECT_EQ(force(PREEMPT), 0);
    EXPECT_EQ(fake::effects().back(), run_event("0x23150003", {"Night copy", "Yard"}));
}

TEST_F(TaskActivation, ForceWhileNothingRunsLeavesAnEventWithAnEmptySecondName) {
    EXPECT_EQ(force(PREEMPT), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects().back(), run_event("0x23150003", {"Night copy", ""}));
}

TEST_F(TaskActivation, ForceInParallelStopsNothingAndLeavesNoEvent) {
    daemon_says(DOORS_RUN);
    EXPECT_EQ(force(R"({"is_force_running": true, "is_parallel_running": true})"), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::effects(),
              (Calls{RUNNING, force_notice("false", "true"), READ_TASKS, READ_TASKS}));
    EXPECT_EQ(fake::debug_texts(), (Strings{reply_line(DOORS_RUN), "Get isParallelRunning=1\n"}));
}

TEST_F(TaskActivation, StopFlagIsForceUnlessParallel) {
    const struct {
        const char* body;
        const char* stop;
        const char* parallel;
    } rows[] = {{R"({"is_force_running": false})", "false", "false"},
                {R"({"is_force_running": true, "is_parallel_running": false})", "true", "false"},
                {R"({"is_force_running": false, "is_parallel_running": false})", "false", "false"},
                {R"({"is_force_running": false, "is_parallel_running": true})", "false", "true"},
                {R"({"is_force_running": true, "is_parallel_running": "true"})", "true", "false"}};
    for (const auto& row : rows) {
        start_over();
        EXPECT_EQ(force(row.body), 0) << row.body;
        EXPECT_EQ(text, SUCCESS) << row.body;
        EXPECT_EQ(fake::effects()[1], force_notice(row.stop, row.parallel)) << row.body;
        EXPECT_EQ(fake::calls_of("send_surveillance_event_log").size(),
                  row.stop == std::string("true") ? 1U : 0U)
            << row.body;
    }
}

TEST_F(TaskActivation, ParallelFlagIsShownToDevelopersOnlyWhenItIsThere) {
    const std::string asked = reply_line(fake::platform.query_replies["get_runningTask_info"]);
    EXPECT_EQ(force(R"({"is_force_running": true, "is_parallel_running": false})"), 0);
    EXPECT_EQ(fake::debug_texts(), (Strings{asked, "Get isParallelRunning=0\n"}));
    start_over();
    EXPECT_EQ(force(PREEMPT), 0);
    EXPECT_EQ(fake::debug_texts(), Strings{asked});
}

TEST_F(TaskActivation, ForceDoesNotAskForTheFileExplorer) {
    fake::platform.keys["fuse/fuse_enabled"] = "0";
    EXPECT_EQ(force(PREEMPT), 0);
    EXPECT_EQ(text, SUCCESS);
    EXPECT_EQ(fake::calls_of("__nvrcfg_get_key_value"), Calls{});
}

TEST_F(TaskActivation, ForceTakesARunningListThatIsMissingOrNoArrayForEmpty) {
    for (const char* answer : {R"({"retCode": 0})", R"({"retCode": 0, "runningTask_info": {}})",
                               R"({"retCode": 0, "runningTask_info": null})"}) {
        start_over();
        daemon_says(answer);
        EXPECT_EQ(force(PREEMPT), 0) << answer;
        EXPECT_EQ(fake::effects().back(), run_event("0x23150003", {"Night copy", ""})) << answer;
    }
}

TEST_F(TaskActivation, NamesThatCannotBeLookedUpAreEmpty) {
    daemon_says(R"({"retCode": 0, "runningTask_info": [{"taskID": "99"}]})");
    EXPECT_EQ(force(PREEMPT, "98"), 0);
    EXPECT_EQ(fake::effects().back(), run_event("0x23150003", {"", ""}));
    fake::fail("__nvrcfg_get_rr_settings", NVRCFG_BUSY);
    EXPECT_EQ(force(PREEMPT), 0);
    EXPECT_EQ(fake::effects().back(), run_event("0x23150003", {"", ""}));
}

// --- force: the failures -------------------------------------------------------------------------

TEST_F(TaskActivation, ForceAnswersABadBodyWithTheActivateMessage) {
    EXPECT_EQ(force(nullptr), CGI_INPUT_FORMAT_ERROR);
    EXPECT_EQ(text, error_reply("2500460548.0", ACTIVE_FAILED));
    EXPECT_EQ(fake::debug_texts(), (Strings{"input format error\n", "error code = 2500460548\n"}));
    for (const char* body : {"", "x", "{", "null"}) {
        start_over();
        EXPECT_EQ(force(body), CGI_INPUT_FORMAT_ERROR) << body;
        EXPECT_EQ(text, error_reply("2500460548.0", ACTIVE_FAILED)) << body;
        EXPECT_EQ(fake::effects(), Calls{}) << body;
        EXPECT_EQ(fake::debug_texts(),
                  (Strings{"json_tokener_parse fail\n", "error code = 2500460548\n"}))
            << body;
    }
}

TEST_F(TaskActivation, ForceFailsWhenTheDaemonCannotBeAsked) {
    fake::fail("ssci_GET_request", -1);
    EXPECT_EQ(force(PREEMPT), CGI_GET_BACKUP_RUNNING_INFO_ERROR);
    EXPECT_EQ(text, error_reply("2500460577.0", FORCE_FAILED));
    EXPECT_EQ(fake::effects(), Calls{RUNNING});
    EXPECT_EQ(fake::debug_texts(),
              (Strings{"CGI_GET_BACKUP_RUNNING_INFO_ERROR fail\n", "error code = 2500460577\n"}));
}

TEST_F(TaskActivation, ForceFailsWhenTheDaemonAnswersNothing) {
    daemon_says("");
    EXPECT_EQ(force(PREEMPT), CGI_GET_BACKUP_RUNNING_INFO_ERROR);
    EXPECT_EQ(text, error_reply("2500460577.0", FORCE_FAILED));
    EXPECT_EQ(fake::debug_texts(),
              (Strings{reply_line(""), "CGI_GET_BACKUP_RUNNING_INFO_ERROR respone is \n",
                       "error code = 2500460577\n"}));
}

TEST_F(TaskActivation, ForceFailsWhenTheDaemonsAnswerCannotBeUsedBeforeItReadsTheBody) {
    for (const auto& [answer, line] : BAD_ANSWERS) {
        start_over();
        daemon_says(answer);
        EXPECT_EQ(force("{}"), CGI_GET_BACKUP_RUNNING_INFO_ERROR) << answer;
        EXPECT_EQ(text, error_reply("2500460577.0", FORCE_FAILED)) << answer;
        EXPECT_EQ(fake::effects(), Calls{RUNNING}) << answer;
        EXPECT_EQ(fake::debug_texts(), (Strings{reply_line(answer.c_str()),
                                                "CGI_GET_BACKUP_RUNNING_INFO_ERROR " + line + "\n",
                                                "error code = 2500460577\n"}));
    }
}

TEST_F(TaskActivation, ForceWithoutIsForceRunningIsAParseFailureAfterTheQuery) {
    const std::string asked = reply_line(fake::platform.query_replies["get_runningTask_info"]);
    for (const char* body : {"{}", "[]", "5", R"({"is_force_running": 1})",
                             R"({"is_force_running": "true"})", R"({"is_active": true})"}) {
        start_over();
        EXPECT_EQ(force(body), CGI_PARSER_JSON_FAIL) << body;
        EXPECT_EQ(text, error_reply("2500460549.0", FORCE_FAILED)) << body;
        EXPECT_EQ(fake::effects(), Calls{RUNNING}) << body;
        EXPECT_EQ(fake::debug_texts(),
                  (Strings{asked, "parser json fail\n", "error code = 2500460549\n"}))
            << body;
    }
}

TEST_F(TaskActivation, ParallelAloneDoesNotSpareIsForceRunning) {
    EXPECT_EQ(force(R"({"is_parallel_running": true})"), CGI_PARSER_JSON_FAIL);
    EXPECT_EQ(text, error_reply("2500460549.0", FORCE_FAILED));
    EXPECT_EQ(fake::effects(), Calls{RUNNING});
}

TEST_F(TaskActivation, NoticeThatCannotBeSentFailsTheForceWithoutEvent) {
    fake::fail("ssci_PUT_request", 503);
    EXPECT_EQ(force(PREEMPT), CGI_CHANGE_STATUS_ERROR);
    EXPECT_EQ(text, error_reply("2500460578.0", FORCE_FAILED));
    EXPECT_EQ(fake::effects(), (Calls{RUNNING, force_notice("true", "false")}));
    const Strings lines = fake::debug_texts();
    EXPECT_EQ(Strings(lines.begin() + 1, lines.end()),
              (Strings{"SSCI put fail\n", "error code = 2500460578\n"}));
}

TEST_F(TaskActivation, AnyOtherExceptionInAForceBecomesCode0) {
    for (const char* call : {"ssci_GET_request", "ssci_PUT_request"}) {
        start_over();
        fake::throw_from(call);
        EXPECT_NO_THROW(force(PREEMPT)) << call;
        EXPECT_EQ(text, error_reply("0.0", FORCE_FAILED)) << call;
    }
}

}  // namespace
