// Tests of every message to the backup daemon and of what is read back.
#include "backup/daemon_client.h"

#include "cgi/result_code.h"
#include "tests/backup/daemon_messages.h"
#include "tests/support/fake_platform/platform_test.h"

namespace {

using Calls = std::vector<fake::Call>;

constexpr RunningTaskLines lines = {"request failed\n", "empty reply\n", "member missing\n", false};

class BackupDaemon : public PlatformTest {
protected:
    static void store(const char* id) {
        TDataBackupConfig task;
        task.taskID = id;
        fake::platform.tasks.push_back(task);
    }

    /// What an operation that only reads the running tasks returns; 0 when they can be read.
    int read_running_tasks() {
        json_object* reply = nullptr;
        const int result = run_operation(&reply, "message", [this] {
            const JsonPtr running = query_running_tasks(lines);
            visit_running_tasks(running_task_array(running.get()), lines,
                                [this](json_object*, const char* id) {
                                    visited.emplace_back(id);
                                    return true;
                                });
        });
        json_object_put(reply);
        return result;
    }

    static void daemon_runs(const std::string& reply) {
        fake::platform.query_replies["get_runningTask_info"] = reply;
    }

    Strings visited;
};

// --- reload notice ------------------------------------------------------------------------------

TEST_F(BackupDaemon, ReloadNoticeHoldsTheReasonAlone) {
    EXPECT_EQ(notify_dataBackupd(), 0);
    EXPECT_EQ(fake::effects(), Calls{notice_call(RELOAD_NOTICE)});
    EXPECT_EQ(fake::debug_texts(), Strings{});
}

TEST_F(BackupDaemon, FailedReloadNoticeGivesTheClientsStatus) {
    for (const int status : {-1, -2, 500}) {
        fake::reset();
        fake::fail("ssci_PUT_request", status);
        EXPECT_EQ(notify_dataBackupd(), status);
        EXPECT_EQ(fake::debug_texts(), Strings{"SSCI put fail\n"});
        EXPECT_EQ(fake::effects().size(), 1U) << "nothing is retried";
    }
}

TEST_F(BackupDaemon, ReplyToANoticeIsNeverRead) {
    for (const char* reply : {"", "no json", R"({"retCode": 3})"}) {
        fake::answer("ssci_PUT_request", reply);
        EXPECT_EQ(notify_dataBackupd(), 0);
        fake::answer("ssci_PUT_request", reply);
        EXPECT_EQ(backup_immediately("1", "name", false), 0);
    }
}

// --- start now ----------------------------------------------------------------------------------

TEST_F(BackupDaemon, StartNowOfAKnownTaskSendsItsIdentifierAndLeavesAnEvent) {
    EXPECT_EQ(backup_immediately("15", "Night copy", false), 0);
    EXPECT_EQ(fake::effects(), (Calls{notice_call(start_notice("15")), READ_FUSE_SWITCH,
                                      start_event("Night copy")}));
    EXPECT_EQ(fake::debug_texts(), Strings{"nTaskID0: 15\n"});
}

TEST_F(BackupDaemon, StartNowOfANewTaskTakesTheNumericallyLargestIdentifier) {
    for (const char* id : {"3", "12", "7"}) store(id);
    EXPECT_EQ(backup_immediately("99", "Night copy", true), 0);
    EXPECT_EQ(fake::effects(), (Calls{READ_TASKS, notice_call(start_notice("12")), READ_FUSE_SWITCH,
                                      start_event("Night copy")}));
    EXPECT_EQ(fake::debug_texts(), Strings{});
}

TEST_F(BackupDaemon, StartNowOfANewTaskWithAnEmptyListSendsZero) {
    EXPECT_EQ(backup_immediately("", "Night copy", true), 0);
    EXPECT_EQ(fake::effects()[1], notice_call(start_notice("0")));
}

TEST_F(BackupDaemon, NegativeOrStrangeIdentifiersNeverBeatZero) {
    for (const char* id : {"-5", "abc", ""}) store(id);
    EXPECT_EQ(backup_immediately("", "Night copy", true), 0);
    EXPECT_EQ(fake::effects()[1], notice_call(start_notice("0")));
}

TEST_F(BackupDaemon, IdentifierIsSentAsTheNumberAtItsBeginning) {
    for (const auto& [id, number] :
         {std::pair("15abc", "15"), {"abc", "0"}, {"", "0"}, {" 7", "7"}, {"-3", "-3"}}) {
        fake::reset();
        EXPECT_EQ(backup_immediately(id, "name", false), 0);
        EXPECT_EQ(fake::effects()[0], notice_call(start_notice(number))) << id;
        EXPECT_EQ(fake::debug_texts(), Strings{"nTaskID0: " + std::string(number) + "\n"});
    }
}

TEST_F(BackupDaemon, IdentifierIsCutTo32Bits) {
    for (const auto& [id, number] : {std::pair("4294967297", "1"),
                                     {"2147483648", "-2147483648"},
                                     {"99999999999999999999", "-1"}}) {
        fake::reset();
        EXPECT_EQ(backup_immediately(id, "name", false), 0);
        EXPECT_EQ(fake::effects()[0], notice_call(start_notice(number))) << id;
    }
}

TEST_F(BackupDaemon, StartNowWithTheFileExplorerOffWritesNoEvent) {
    fake::platform.keys["fuse/fuse_enabled"] = "0";
    EXPECT_EQ(backup_immediately("15", "Night copy", false), 0);
    EXPECT_EQ(fake::effects(), (Calls{notice_call(start_notice("15")), READ_FUSE_SWITCH}));
}

TEST_F(BackupDaemon, FailedStartNoticeIsAChangeStatusErrorWithoutEvent) {
    fake::fail("ssci_PUT_request", -2);
    EXPECT_EQ(backup_immediately("15", "Night copy", false), CGI_CHANGE_STATUS_ERROR);
    EXPECT_EQ(fake::effects(), Calls{notice_call(start_notice("15"))});
    EXPECT_EQ(fake::debug_texts(), (Strings{"nTaskID0: 15\n", "SSCI put fail\n"}));
}

TEST_F(BackupDaemon, UnreadableListSendsNothingAndGivesTheStoresStatus) {
    fake::fail("__nvrcfg_get_rr_settings", 2);
    EXPECT_EQ(backup_immediately("", "Night copy", true), 2);
    EXPECT_EQ(fake::effects(), Calls{READ_TASKS});
    EXPECT_EQ(fake::debug_texts(), Strings{"nvrcfg_get_rr_settings fail\n"});
}

// --- running tasks ------------------------------------------------------------------------------

TEST_F(BackupDaemon, RunningTasksAreAskedForOnce) {
    EXPECT_EQ(read_running_tasks(), 0);
    EXPECT_EQ(fake::effects(), Calls{query_call("get_runningTask_info")});
}

TEST_F(BackupDaemon, EmptyRunningListMeansNothingRuns) {
    daemon_runs(R"({"retCode":0,"runningTask_info":[]})");
    EXPECT_EQ(read_running_tasks(), 0);
    EXPECT_EQ(visited, Strings{});
}

TEST_F(BackupDaemon, RunningTasksAreVisitedInOrderUpToTheLast) {
    daemon_runs(R"({"retCode":0,"runningTask_info":[{"taskID":"3"},{"taskID":"12"}]})");
    EXPECT_EQ(read_running_tasks(), 0);
    EXPECT_EQ(visited, (Strings{"3", "12"}));
}

TEST_F(BackupDaemon, RunningIdentifierIsCutTo511Characters) {
    daemon_runs(R"({"retCode":0,"runningTask_info":[{"taskID":")" + std::string(10000, '1') +
                R"("}]})");
    EXPECT_EQ(read_running_tasks(), 0);
    EXPECT_EQ(visited, Strings{std::string(511, '1')});
}

TEST_F(BackupDaemon, RunningTaskWithoutIdentifierIsAParseFailure) {
    for (const char* element : {"{}", R"({"taskID":3})", "null", "5", "[]"}) {
        daemon_runs(std::string(R"({"retCode":0,"runningTask_info":[)") + element + "]}");
        EXPECT_EQ(read_running_tasks(), CGI_PARSER_JSON_FAIL) << element;
    }
}

TEST_F(BackupDaemon, FailedRunningQueryIsARunningInfoError) {
    fake::fail("ssci_GET_request", -1);
    EXPECT_EQ(read_running_tasks(), CGI_GET_BACKUP_RUNNING_INFO_ERROR);
}

TEST_F(BackupDaemon, EmptyRunningReplyIsARunningInfoError) {
    daemon_runs("");
    EXPECT_EQ(read_running_tasks(), CGI_GET_BACKUP_RUNNING_INFO_ERROR);
}

TEST_F(BackupDaemon, UnreadableRunningReplyIsARunningInfoError) {
    daemon_runs("{\"retCode\":");
    EXPECT_EQ(read_running_tasks(), CGI_GET_BACKUP_RUNNING_INFO_ERROR);
    EXPECT_EQ(fake::debug_texts()[0],
              "CGI_GET_BACKUP_RUNNING_INFO_ERROR json_tokener_parse fail\n");
}

TEST_F(BackupDaemon, RunningReplyWithoutRetCodeIsARunningInfoError) {
    for (const char* reply : {R"({"runningTask_info":[]})", R"({"retCode":"0"})", "[]", "5"}) {
        fake::platform.debug.clear();
        daemon_runs(reply);
        EXPECT_EQ(read_running_tasks(), CGI_GET_BACKUP_RUNNING_INFO_ERROR) << reply;
        EXPECT_EQ(fake::debug_texts()[0], "CGI_GET_BACKUP_RUNNING_INFO_ERROR parser json fail\n");
    }
}

TEST_F(BackupDaemon, RunningReplyWithRetCode3FailsThoughItListsTasks) {
    daemon_runs(R"({"retCode":3,"runningTask_info":[{"taskID":"3"}]})");
    EXPECT_EQ(read_running_tasks(), CGI_GET_BACKUP_RUNNING_INFO_ERROR);
    EXPECT_EQ(visited, Strings{});
    EXPECT_EQ(fake::debug_texts()[0],
              "CGI_GET_BACKUP_RUNNING_INFO_ERROR backup server error: get backup info faile.\n");
}

// --- waiting sequence ---------------------------------------------------------------------------

TEST_F(BackupDaemon, WaitingSequenceIsAskedForAndHandedOutAsItIs) {
    fake::platform.query_replies["get_waitingTask_seq"] = "any text";
    std::string reply;
    EXPECT_EQ(query_waiting_sequence(reply), 0);
    EXPECT_EQ(reply, "any text");
    EXPECT_EQ(fake::effects(), Calls{query_call("get_waitingTask_seq")});
}

TEST_F(BackupDaemon, StopNoticeNamesNoTask) {
    JsonPtr task_info(json_object_new_object());
    json_object_object_add(task_info.get(), "start_task", json_object_new_boolean(0));
    EXPECT_EQ(send_task_notice(std::move(task_info)), 0);
    EXPECT_EQ(fake::effects(),
              Calls{notice_call(R"({ "notice_reason": { "type": 1030, "action": 1 }, )"
                                R"("task_info": { "start_task": false } })")});
}

}  // namespace
