// Tests of the task list: entries, queue places, rates, and every way the daemon can fail it.
#include "backup/task_list.h"

#include "backup/recording_backup_function.h"
#include "cgi/result_code.h"
#include "platform/nvrcfg.h"
#include "tests/backup/daemon_messages.h"
#include "tests/backup/linked_failures.h"
#include "tests/support/fake_platform/platform_test.h"
#include "tests/support/sample_task.h"

namespace {

using Calls = std::vector<fake::Call>;

constexpr char MESSAGE[] = "Get task list fail.";
constexpr char RUNNING_LINE[] = "CGI_GET_BACKUP_RUNNING_INFO_ERROR ";

/// A list reply around its entries.
std::string list_reply(const std::string& entries, int max_parallel = 2) {
    return R"({ "ret_code": 0, "mesg": "Success.", "task_list": [ )" + entries +
           (entries.empty() ? "" : " ") + R"(], "max_parallel_task_num": )" +
           std::to_string(max_parallel) + " }";
}

class TaskList : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        linked_failures = {};
    }

    void TearDown() override { linked_failures = {}; }

    int list() {
        json_object* reply = nullptr;
        const int result = get_backup_task_list(&reply);
        text = printed(reply);
        return result;
    }

    /// The list's only entry, or one member of it, as json-c prints it.
    std::string entry(const char* member = nullptr) {
        EXPECT_EQ(list(), 0);
        json_object* reply = json_tokener_parse(text.c_str());
        json_object* tasks = json_object_object_get(reply, "task_list");
        EXPECT_EQ(json_object_array_length(tasks), 1U);
        json_object* found = json_object_array_get_idx(tasks, 0);
        if (member) found = json_object_object_get(found, member);
        const std::string shown = json_object_to_json_string(found);
        json_object_put(reply);
        return shown;
    }

    std::string entry_of(const TDataBackupConfig& task, const char* member) {
        fake::platform.tasks = {task};
        return entry(member);
    }

    static void store(const TDataBackupConfig& task) { fake::platform.tasks.push_back(task); }

    static void daemon_runs(const std::string& reply) {
        fake::platform.query_replies["get_runningTask_info"] = reply;
    }

    static void daemon_runs_elements(const std::string& elements) {
        daemon_runs(R"({"retCode": 0, "max_parallel_task_num": 5, "runningTask_info": [)" +
                    elements + "]}");
    }

    static void daemon_queues(const std::string& reply) {
        fake::platform.query_replies["get_waitingTask_seq"] = reply;
    }

    static void daemon_queues_elements(const std::string& elements) {
        daemon_queues(R"({"retCode": 0, "watinTask_info": [)" + elements + "]}");
    }

    void expect_failed(int result, const std::string& shown_code, const Strings& debug) {
        EXPECT_EQ(list(), result);
        EXPECT_EQ(text, error_reply(shown_code + ".0", MESSAGE));
        Strings expected = {"get_backup_task_list\n"};
        expected.insert(expected.end(), debug.begin(), debug.end());
        expected.push_back("error code = " + shown_code + "\n");
        EXPECT_EQ(fake::debug_texts(), expected);
        fake::platform.debug.clear();
    }

    void expect_sequence_failed(int result, const std::string& shown_code, const Strings& debug) {
        Strings expected = debug;
        expected.push_back("get_task_sequence_list_from_daemon fail\n");
        fake::platform.calls.clear();
        expect_failed(result, shown_code, expected);
        EXPECT_EQ(fake::effects(), Calls{query_call("get_waitingTask_seq")});
    }

    void expect_running_failed(int result, const std::string& shown_code, const Strings& debug) {
        Strings expected = debug;
        expected.push_back("task_list_to_json fail nRet=" + std::to_string(result) + "\n");
        fake::platform.tasks = {night_copy(TASK_RUNNING)};
        expect_failed(result, shown_code, expected);
    }

    std::string text;
};

// --- the whole reply ----------------------------------------------------------------------------

TEST_F(TaskList, WithoutTasksTheListIsEmptyAndTheLimitTwo) {
    EXPECT_EQ(list(), 0);
    EXPECT_EQ(text, list_reply(""));
    EXPECT_EQ(fake::effects(), (Calls{query_call("get_waitingTask_seq"), READ_TASKS}));
    EXPECT_EQ(fake::debug_texts(), Strings{"get_backup_task_list\n"});
}

TEST_F(TaskList, EntryHoldsAllMembersInOrder) {
    store(night_copy());
    EXPECT_EQ(list(), 0);
    EXPECT_EQ(
        text,
        list_reply(
            R"({ "taskID": "12", "taskName": "Night copy", "serverIP": "192.0.2.7", "port": 445, )"
            R"("username": "backup", "password": "p@ss word", "destPath": "share", )"
            R"("chIdxList": [ 1, 3, 4 ], "backupType": "BackupByTimeRange", "backupDays": 7, )"
            R"("backupStartDay": "2024-03-01", "backupEndDay": "2024-03-02", )"
            R"("backupStartTimeStamp": 1709251200, "backupEndTimeStamp": 1709337600, )"
            R"("backupImmediately": 0, "scheduleType": "weekly", "scheduleWeekly": 3, )"
            R"("scheduleHour": 2, "scheduleMin": 30, "scheduleEveryHours": 6, )"
            R"("recordingType": "recording_and_alarm", "recordingFormat": "ostra", )"
            R"("remoteKeepRec": 1, "remoteKeepRecDays": 30, "remoteOverwriteType": "overwrite", )"
            R"("status": "success", "enable": true, "transferRate": "-1.00", )"
            R"("finishRate": -1.0, "sequence": -1, "endTimeStamp": 1700000100, "isFUSE": true })"));
    EXPECT_EQ(fake::effects(),
              (Calls{query_call("get_waitingTask_seq"), READ_TASKS, READ_FUSE_SWITCH}));
    EXPECT_EQ(fake::debug_texts(), Strings{"get_backup_task_list\n"});
}

TEST_F(TaskList, EntriesKeepStoreOrder) {
    for (const char* id : {"30", "4", "12"}) {
        TDataBackupConfig task;
        task.taskID = id;
        store(task);
    }
    EXPECT_EQ(list(), 0);
    const auto at = [this](const char* id) {
        return text.find("\"taskID\": \"" + std::string(id) + "\"");
    };
    EXPECT_LT(at("30"), at("4"));
    EXPECT_LT(at("4"), at("12"));
    EXPECT_NE(at("12"), std::string::npos);
    EXPECT_EQ(fake::platform.tasks.size(), 3U);
}

TEST_F(TaskList, DaemonIsAskedOnceForTheQueueAndOnceForEachRunningTask) {
    for (const int status : {TASK_RUNNING, TASK_NEW, TASK_PREPARE_START}) store(night_copy(status));
    EXPECT_EQ(list(), 0);
    EXPECT_EQ(fake::effects(),
              (Calls{query_call("get_waitingTask_seq"), READ_TASKS, READ_FUSE_SWITCH,
                     query_call("get_runningTask_info"), query_call("get_runningTask_info")}));
}

TEST_F(TaskList, TextsArePrintedAsStored) {
    TDataBackupConfig task = night_copy();
    task.password = "\\/\"'\x01";
    EXPECT_EQ(entry_of(task, "password"), R"("\\\/\"'\u0001")");
    task.taskName = std::string(10000, 'n');
    EXPECT_EQ(entry_of(task, "taskName"), "\"" + std::string(10000, 'n') + "\"");
}

TEST_F(TaskList, IndexOutsideItsTableGivesAnEmptyText) {
    for (const int index : {99, -1, 8, INT32_MIN, INT32_MAX}) {
        TDataBackupConfig task = night_copy(index);
        task.backupType = task.scheduleType = task.recordingType = index;
        task.recordingFormat = task.remoteOverwriteType = index;
        for (const char* member : {"backupType", "scheduleType", "recordingType", "recordingFormat",
                                   "remoteOverwriteType", "status"})
            EXPECT_EQ(entry_of(task, member), "\"\"") << member << " " << index;
    }
}

TEST_F(TaskList, EveryCharacterOfATextIsPrintedAsJsonCPrintsIt) {
    for (int character = 1; character < 256; ++character) {
        TDataBackupConfig task = night_copy();
        task.taskName = std::string("a") + static_cast<char>(character) + "b";
        fake::platform.tasks = {task};
        EXPECT_EQ(list(), 0);
        json_object* name = json_object_new_string(task.taskName.c_str());
        const std::string member =
            std::string("\"taskName\": ") + json_object_to_json_string(name) + ", ";
        EXPECT_NE(text.find(member), std::string::npos) << character;
        json_object_put(name);
    }
}

TEST_F(TaskList, FlagsOfATaskArePrintedEachInItsKind) {
    TDataBackupConfig task = night_copy();
    task.backupImmediately = true;
    task.remoteKeepRec = false;
    task.enable = false;
    EXPECT_EQ(entry_of(task, "backupImmediately"), "1");
    EXPECT_EQ(entry_of(task, "remoteKeepRec"), "0");
    EXPECT_EQ(entry_of(task, "enable"), "false");
}

TEST_F(TaskList, FileExplorerThatIsOffIsShownInEveryEntry) {
    fake::platform.keys["fuse/fuse_enabled"] = "0";
    store(night_copy());
    EXPECT_EQ(entry("isFUSE"), "false");
}

// --- channels -----------------------------------------------------------------------------------

TEST_F(TaskList, ChannelTextIsSplitAtCommas) {
    for (const auto& [list, array] : {std::pair("1,2,", "[ 1, 2, 0 ]"),
                                      {"5", "[ 5 ]"},
                                      {"", "[ ]"},
                                      {",", "[ 0, 0 ]"},
                                      {"3,1,2", "[ 3, 1, 2 ]"},
                                      {"x,7y,-1", "[ 0, 7, -1 ]"}}) {
        TDataBackupConfig task = night_copy();
        task.chIdxList = list;
        EXPECT_EQ(entry_of(task, "chIdxList"), array) << list;
    }
}

TEST_F(TaskList, LongChannelTextIsReadWhole) {
    TDataBackupConfig task = night_copy();
    std::string array = "[ 0";
    task.chIdxList = "0";
    for (int channel = 1; channel < 5000; ++channel) {
        task.chIdxList += "," + std::to_string(channel);
        array += ", " + std::to_string(channel);
    }
    EXPECT_EQ(entry_of(task, "chIdxList"), array + " ]");
}

// --- days and times -----------------------------------------------------------------------------

TEST_F(TaskList, StoredSundayZeroIsReportedAsSeven) {
    TDataBackupConfig task = night_copy();
    for (const auto& [stored, shown] : {std::pair(0, "7"), {7, "7"}, {6, "6"}, {-1, "-1"}}) {
        task.scheduleWeekly = stored;
        EXPECT_EQ(entry_of(task, "scheduleWeekly"), shown);
    }
}

TEST_F(TaskList, EmptyDayHasTimeStampMinusOne) {
    TDataBackupConfig task = night_copy();
    task.backupStartDay = task.backupEndDay = "";
    EXPECT_EQ(entry_of(task, "backupStartTimeStamp"), "-1");
    EXPECT_EQ(entry_of(task, "backupEndTimeStamp"), "-1");
    EXPECT_EQ(entry_of(task, "backupStartDay"), "\"\"");
}

TEST_F(TaskList, DaysTimeStampIsItsLocalMidnight) {
    TDataBackupConfig task = night_copy();
    task.backupEndDay = "2024-07-01";
    set_zone("XXX8");
    EXPECT_EQ(entry_of(task, "backupStartTimeStamp"), "1709280000");
    set_zone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(entry_of(task, "backupStartTimeStamp"), "1709247600");
    EXPECT_EQ(entry_of(task, "backupEndTimeStamp"), "1719784800") << "a day in summer time";
}

TEST_F(TaskList, TaskThatNeverEndedHasEndTimeStampMinusOne) {
    TDataBackupConfig task = night_copy();
    task.endTime = "";
    EXPECT_EQ(entry_of(task, "endTimeStamp"), "-1");
    EXPECT_EQ(fake::calls_of("conv_to_local_time"), Calls{});
}

TEST_F(TaskList, EndTimeIsShiftedToLocalTime) {
    fake::platform.utc_offset_ms = 3600 * 1000;
    EXPECT_EQ(entry_of(night_copy(), "endTimeStamp"), "1700003700");
    EXPECT_EQ(fake::calls_of("conv_to_local_time"),
              (Calls{{"conv_to_local_time", {"1700000100000"}}}));
}

TEST_F(TaskList, EndTimeIsCutTo32BitsAndItsMillisecondsAreDropped) {
    TDataBackupConfig task = night_copy();
    for (const auto& [stored, shown] :
         {std::pair("4294967297", "2"), {"abc", "1"}, {"-3", "-1"}, {"-1", "0"}, {"7 s", "8"}}) {
        fake::platform.utc_offset_ms = 1500;
        task.endTime = stored;
        EXPECT_EQ(entry_of(task, "endTimeStamp"), shown) << stored;
    }
}

// --- place in the queue -------------------------------------------------------------------------

TEST_F(TaskList, TaskAbsentFromTheQueueHasSequenceMinusOne) {
    daemon_queues_elements(R"({"taskID": "13", "seq": 0}, {"taskID": "1", "seq": 1})");
    EXPECT_EQ(entry_of(night_copy(), "sequence"), "-1");
}

TEST_F(TaskList, TaskInSlotZeroHasSequenceZero) {
    daemon_queues_elements(R"({"taskID": "12", "seq": 0})");
    EXPECT_EQ(entry_of(night_copy(), "sequence"), "0");
}

TEST_F(TaskList, SlotTenIsTheLastThatIsSearched) {
    daemon_queues_elements(R"({"taskID": "12", "seq": 10})");
    EXPECT_EQ(entry_of(night_copy(), "sequence"), "10");
    daemon_queues_elements(R"({"taskID": "12", "seq": 11})");
    EXPECT_EQ(entry_of(night_copy(), "sequence"), "-1");
}

TEST_F(TaskList, FirstSlotOfATaskCountsAndALaterElementTakesASlotOver) {
    daemon_queues_elements(R"({"taskID": "12", "seq": 5}, {"taskID": "12", "seq": 3})");
    EXPECT_EQ(entry_of(night_copy(), "sequence"), "3");
    daemon_queues_elements(R"({"taskID": "12", "seq": 3}, {"taskID": "13", "seq": 3})");
    EXPECT_EQ(entry_of(night_copy(), "sequence"), "-1");
}

TEST_F(TaskList, NegativePlaceNamesNoSlot) {
    daemon_queues_elements(R"({"taskID": "12", "seq": -1}, {"taskID": "12", "seq": -2147483648})");
    EXPECT_EQ(entry_of(night_copy(), "sequence"), "-1");
}

TEST_F(TaskList, PlacesOfAnEarlierListAreForgotten) {
    daemon_queues_elements(R"({"taskID": "12", "seq": 4})");
    EXPECT_EQ(entry_of(night_copy(), "sequence"), "4");
    daemon_queues_elements("");
    EXPECT_EQ(entry_of(night_copy(), "sequence"), "-1");
}

TEST_F(TaskList, LongIdentifierInTheQueueIsCutTo511Characters) {
    daemon_queues_elements(R"({"seq": 2, "taskID": ")" + std::string(10000, '1') + "\"}");
    TDataBackupConfig task = night_copy();
    task.taskID = std::string(511, '1');
    EXPECT_EQ(entry_of(task, "sequence"), "2");
}

// --- rates --------------------------------------------------------------------------------------

TEST_F(TaskList, TaskThatDoesNotRunHasRatesMinusOneWhateverTheDaemonHolds) {
    daemon_runs_elements(R"({"taskID": "12", "finishRate": 50, "transferRate": 2048})");
    for (const int status : {0, 1, 2, 5, 6, 7, 99, -1}) {
        EXPECT_EQ(entry_of(night_copy(status), "transferRate"), "\"-1.00\"") << status;
        EXPECT_EQ(entry_of(night_copy(status), "finishRate"), "-1.0") << status;
    }
    EXPECT_EQ(text.substr(text.rfind(", ")), R"(, "max_parallel_task_num": 2 })");
}

TEST_F(TaskList, RunningTaskWithAnEmptyRunningListHasRatesMinusTwo) {
    EXPECT_EQ(entry_of(night_copy(TASK_RUNNING), "transferRate"), "\"-2.00\"");
    EXPECT_EQ(entry_of(night_copy(TASK_RUNNING), "finishRate"), "-2.0");
}

TEST_F(TaskList, RunningTaskThatTheDaemonDoesNotListHasRatesMinusOne) {
    daemon_runs_elements(R"({"taskID": "1"}, {"taskID": "120"})");
    EXPECT_EQ(entry_of(night_copy(TASK_RUNNING), "transferRate"), "\"-1.00\"");
    EXPECT_EQ(entry_of(night_copy(TASK_RUNNING), "finishRate"), "-1.0");
}

TEST_F(TaskList, TransferRateIsShownInKibAndFinishRateRoundedToOneDecimal) {
    daemon_runs_elements(R"({"taskID": "12", "finishRate": 33.36, "transferRate": 2048})");
    for (const int status : {TASK_RUNNING, TASK_PREPARE_START}) {
        EXPECT_EQ(entry_of(night_copy(status), "transferRate"), "\"2.00\"");
        json_object* rounded = json_object_new_double(33.4);
        EXPECT_EQ(entry_of(night_copy(status), "finishRate"), json_object_to_json_string(rounded));
        json_object_put(rounded);
    }
}

TEST_F(TaskList, RatesMayBeWholeNumbersAndOfAnySize) {
    daemon_runs_elements(R"({"taskID": "12", "finishRate": 100, "transferRate": 0})");
    EXPECT_EQ(entry_of(night_copy(TASK_RUNNING), "transferRate"), "\"0.00\"");
    EXPECT_EQ(entry_of(night_copy(TASK_RUNNING), "finishRate"), "100.0");
    daemon_runs_elements(R"({"taskID": "12", "finishRate": -1e300, "transferRate": 1e300})");
    EXPECT_EQ(entry_of(night_copy(TASK_RUNNING), "transferRate").size(), 302U);
}

TEST_F(TaskList, FirstRunningElementOfTheTaskIsTaken) {
    daemon_runs_elements(
        R"({"taskID": "7"}, {"taskID": "12", "finishRate": 1, "transferRate": 1024},
                            {"taskID": "12", "finishRate": 2, "transferRate": 2048}, {})");
    EXPECT_EQ(entry_of(night_copy(TASK_RUNNING), "transferRate"), "\"1.00\"");
    EXPECT_EQ(
        fake::debug_texts(),
        (Strings{"get_backup_task_list\n", "c_strTaskID = 7, mBackupConfig.taskID.c_str() = 12\n",
                 "c_strTaskID = 12, mBackupConfig.taskID.c_str() = 12\n"}));
}

TEST_F(TaskList, DaemonsLimitOfParallelTasksHoldsForTheWholeList) {
    daemon_runs_elements("");
    store(night_copy(TASK_RUNNING));
    store(night_copy(TASK_SUCCESS));
    EXPECT_EQ(list(), 0);
    EXPECT_EQ(text.substr(text.rfind(", ")), R"(, "max_parallel_task_num": 5 })");
}

// --- the failure table --------------------------------------------------------------------------

TEST_F(TaskList, FailedWaitingQueryFailsTheList) {
    fake::fail("ssci_GET_request", -1);
    expect_sequence_failed(CGI_SSCI_FAIL, "2500460579", {"SSCI fail\n"});
}

TEST_F(TaskList, EmptyWaitingReplyFailsTheList) {
    daemon_queues("");
    expect_sequence_failed(CGI_SSCI_FAIL, "2500460579", {"SSCI respone is \n"});
}

TEST_F(TaskList, UnreadableWaitingReplyFailsTheList) {
    for (const char* reply : {"no json", "{\"retCode\": 0", "null"}) {
        daemon_queues(reply);
        EXPECT_EQ(list(), CGI_SSCI_FAIL) << reply;
        EXPECT_EQ(text, error_reply("2500460579.0", MESSAGE));
    }
}

TEST_F(TaskList, WaitingReplyWithoutRetCodeFailsTheList) {
    for (const char* reply : {R"({"watinTask_info": []})", R"({"retCode": "0"})", "[]", "5"}) {
        daemon_queues(reply);
        EXPECT_EQ(list(), CGI_PARSER_JSON_FAIL) << reply;
        EXPECT_EQ(text, error_reply("2500460549.0", MESSAGE));
    }
}

TEST_F(TaskList, WaitingReplyWithANonZeroRetCodeFailsTheList) {
    daemon_queues(R"({"retCode": 3, "watinTask_info": []})");
    expect_sequence_failed(CGI_PARSER_JSON_FAIL, "2500460549",
                           {"backup server error: get sequence info faile.\n"});
}

TEST_F(TaskList, WaitingReplyWithoutItsArrayFailsTheList) {
    for (const char* reply : {R"({"retCode": 0})", R"({"retCode": 0, "watinTask_info": {}})",
                              R"({"retCode": 0, "watinTask_info": "x"})",
                              R"({"retCode": 0, "watinTask_info": null})"}) {
        daemon_queues(reply);
        EXPECT_EQ(list(), CGI_PARSER_JSON_FAIL) << reply;
    }
}

TEST_F(TaskList, WaitingElementWithoutSeqFailsTheList) {
    for (const char* element : {R"({"taskID": "12"})", R"({"taskID": "12", "seq": "1"})", "null"}) {
        daemon_queues_elements(element);
        EXPECT_EQ(list(), CGI_PARSER_JSON_FAIL) << element;
    }
}

TEST_F(TaskList, WaitingElementWithoutIdentifierFailsTheList) {
    for (const char* element :
         {R"({"seq": 0})", R"({"seq": 11})", R"({"seq": -1})", R"({"seq": 0, "taskID": 12})"}) {
        daemon_queues_elements(element);
        EXPECT_EQ(list(), CGI_PARSER_JSON_FAIL) << element;
        EXPECT_EQ(text, error_reply("2500460549.0", MESSAGE));
    }
}

TEST_F(TaskList, PlaceTwelveFailsTheList) {
    for (const char* element : {R"({"taskID": "12", "seq": 12})", R"({"seq": 12})",
                                R"({"taskID": "12", "seq": 99999999999})"}) {
        daemon_queues_elements(element);
        EXPECT_EQ(list(), CGI_GET_TASK_SEQUENCE_ERROR) << element;
        EXPECT_EQ(text, error_reply("2500460576.0", MESSAGE));
    }
}

TEST_F(TaskList, UnreadableStoreGivesItsStatus) {
    fake::fail("__nvrcfg_get_rr_settings", NVRCFG_BUSY);
    expect_failed(NVRCFG_BUSY, "2", {"nvrcfg_get_rr_settings fail\n"});
}

TEST_F(TaskList, FailedRunningQueryFailsTheList) {
    fake::fail("ssci_GET_request", 500, 2);
    expect_running_failed(CGI_GET_BACKUP_RUNNING_INFO_ERROR, "2500460577",
                          {std::string(RUNNING_LINE) + "SSCI_GET fail\n"});
}

TEST_F(TaskList, EmptyRunningReplyFailsTheList) {
    daemon_runs("");
    expect_running_failed(CGI_GET_BACKUP_RUNNING_INFO_ERROR, "2500460577",
                          {std::string(RUNNING_LINE) + "SSCI respone is \n"});
}

TEST_F(TaskList, UnreadableRunningReplyFailsTheList) {
    daemon_runs("{\"retCode\":");
    expect_running_failed(CGI_GET_BACKUP_RUNNING_INFO_ERROR, "2500460577",
                          {std::string(RUNNING_LINE) + "json_tokener_parse fail\n"});
}

TEST_F(TaskList, RunningReplyWithoutRetCodeFailsTheList) {
    daemon_runs(R"({"max_parallel_task_num": 2, "runningTask_info": []})");
    expect_running_failed(CGI_GET_BACKUP_RUNNING_INFO_ERROR, "2500460577",
                          {std::string(RUNNING_LINE) + "parser json fail\n"});
}

TEST_F(TaskList, RunningReplyWithANonZeroRetCodeFailsTheList) {
    daemon_runs(R"({"retCode": 3, "max_parallel_task_num": 2, "runningTask_info": []})");
    expect_running_failed(
        CGI_GET_BACKUP_RUNNING_INFO_ERROR, "2500460577",
        {std::string(RUNNING_LINE) + "backup server error: get backup info faile.\n"});
}

class IncompleteRunningReply : public TaskList,
                               public ::testing::WithParamInterface<const char*> {};

TEST_P(IncompleteRunningReply, FailsTheList) {
    daemon_runs(GetParam());
    store(night_copy(TASK_NEW));
    store(night_copy(TASK_RUNNING));
    EXPECT_EQ(list(), CGI_PARSER_JSON_FAIL);
    EXPECT_EQ(text, error_reply("2500460549.0", MESSAGE));
    const Strings debug = fake::debug_texts();
    ASSERT_GE(debug.size(), 3U);
    EXPECT_EQ(debug[debug.size() - 2], "task_list_to_json fail nRet=-1794506747\n");
    EXPECT_EQ(debug.back(), "error code = 2500460549\n");
}

INSTANTIATE_TEST_SUITE_P(
    TaskList, IncompleteRunningReply,
    ::testing::Values(
        R"({"retCode": 0, "runningTask_info": []})",
        R"({"retCode": 0, "max_parallel_task_num": "2", "runningTask_info": []})",
        R"({"retCode": 0, "max_parallel_task_num": 2})",
        R"({"retCode": 0, "max_parallel_task_num": 2, "runningTask_info": {}})",
        R"({"retCode": 0, "max_parallel_task_num": 2, "runningTask_info": [{}]})",
        R"({"retCode": 0, "max_parallel_task_num": 2, "runningTask_info": [{"taskID": 12}]})",
        R"({"retCode": 0, "max_parallel_task_num": 2, "runningTask_info": [null]})",
        R"({"retCode": 0, "max_parallel_task_num": 2,
            "runningTask_info": [{"taskID": "12", "transferRate": 1}]})",
        R"({"retCode": 0, "max_parallel_task_num": 2,
            "runningTask_info": [{"taskID": "12", "finishRate": 1}]})",
        R"({"retCode": 0, "max_parallel_task_num": 2,
            "runningTask_info": [{"taskID": "12", "finishRate": "1", "transferRate": 1}]})"));

TEST_F(TaskList, EntryThatCannotBeMadeFailsTheList) {
    json_object* entry = nullptr;
    int max_parallel = 2;
    linked_failures.new_string = 1;
    EXPECT_EQ(task_list_to_json(night_copy(), &entry, max_parallel), -991);
    EXPECT_EQ(entry, nullptr);
    store(night_copy());
    linked_failures.new_string = 1;  // nothing but the entry is a text of known length
    expect_failed(-991, "-991", {"task_list_to_json fail nRet=-991\n"});
}

TEST_F(TaskList, ChannelArrayThatCannotBeMadeFailsTheList) {
    json_object* entry = nullptr;
    int max_parallel = 2;
    linked_failures.new_array = 1;
    EXPECT_EQ(task_list_to_json(night_copy(), &entry, max_parallel), -992);
    json_object_put(entry);
    store(night_copy());
    linked_failures.new_array = 2;  // behind the list's own array
    expect_failed(-992, "-992", {"task_list_to_json fail nRet=-992\n"});
}

TEST_F(TaskList, FailureDropsTheEntriesMadeBefore) {
    store(night_copy(TASK_NEW));
    store(night_copy(TASK_RUNNING));
    daemon_runs("");
    EXPECT_EQ(list(), CGI_GET_BACKUP_RUNNING_INFO_ERROR);
    EXPECT_EQ(text, error_reply("2500460577.0", MESSAGE));
}

TEST_F(TaskList, AnyOtherExceptionLeavesASuccessReplyWithTheEntriesSoFar) {
    fake::throw_from("__nvrcfg_get_rr_settings");
    EXPECT_EQ(list(), 0);
    EXPECT_EQ(text, list_reply(""));
    EXPECT_EQ(fake::debug_texts(), (Strings{"get_backup_task_list\n", "error code = 0\n"}));

    fake::reset();
    store(night_copy());
    EXPECT_EQ(list(), 0);
    const std::string one_entry = text;
    store(night_copy());
    fake::throw_from("conv_to_local_time", 2);
    EXPECT_EQ(list(), 0);
    EXPECT_EQ(text, one_entry);
}

}  // namespace
