// Tests of the look-ups by identifier and of the status query.
#include "backup/task_lookup.h"

#include "backup/recording_backup_function.h"
#include "cgi/result_code.h"
#include "platform/nvrcfg.h"
#include "tests/backup/daemon_messages.h"
#include "tests/support/fake_platform/platform_test.h"

namespace {

class TaskLookup : public PlatformTest {
protected:
    static void store(const char* id, const char* name, int status) {
        TDataBackupConfig task;
        task.taskID = id;
        task.taskName = name;
        task.status = status;
        fake::platform.tasks.push_back(task);
    }

    static std::string status_reply(const char* id) {
        json_object* reply = nullptr;
        EXPECT_EQ(get_task_status(&reply, id), 0);
        return printed(reply);
    }

    static std::string status_reply_of(const std::string& word) {
        return R"({ "ret_code": 0, "mesg": "Success.", "status": ")" + word + "\" }";
    }

    std::string text = "before";
};

TEST_F(TaskLookup, FoundTaskGivesItsNameAndStatus) {
    store("3", "other", 1);
    store("12", "Night copy", 4);
    EXPECT_EQ(get_task_name_by_task_id("12", text), 0);
    EXPECT_EQ(text, "Night copy");
    EXPECT_EQ(get_task_status_by_task_id("12", text), 0);
    EXPECT_EQ(text, "running");
    EXPECT_EQ(fake::effects(), (std::vector<fake::Call>{READ_TASKS, READ_TASKS}));
    EXPECT_EQ(fake::debug_texts(), Strings{});
}

TEST_F(TaskLookup, EmptyIdentifierMatchesOnlyAnEmptyOne) {
    store("12", "Night copy", 4);
    EXPECT_EQ(get_task_name_by_task_id("", text), CGI_TASK_NOT_FOUND);
    EXPECT_EQ(text, "before");
    store("", "nameless", 1);
    EXPECT_EQ(get_task_name_by_task_id("", text), 0);
    EXPECT_EQ(text, "nameless");
}

TEST_F(TaskLookup, IdentifierThatDiffersInLetterCaseDoesNotMatch) {
    store("abc", "Night copy", 4);
    for (const char* id : {"ABC", "abC", "ab", "abcd", " abc", "abc "}) {
        EXPECT_EQ(get_task_name_by_task_id(id, text), CGI_TASK_NOT_FOUND) << id;
        EXPECT_EQ(get_task_status_by_task_id(id, text), CGI_TASK_NOT_FOUND) << id;
    }
    EXPECT_EQ(text, "before");
}

TEST_F(TaskLookup, FirstOfTwoTasksWithOneIdentifierCounts) {
    store("12", "first", 4);
    store("12", "second", 7);
    EXPECT_EQ(get_task_name_by_task_id("12", text), 0);
    EXPECT_EQ(text, "first");
    EXPECT_EQ(get_task_status_by_task_id("12", text), 0);
    EXPECT_EQ(text, "running");
}

TEST_F(TaskLookup, UnreadableStoreGivesItsStatusAndIsLogged) {
    fake::fail("__nvrcfg_get_rr_settings", NVRCFG_BUSY);
    EXPECT_EQ(get_task_name_by_task_id("12", text), NVRCFG_BUSY);
    EXPECT_EQ(get_task_status_by_task_id("12", text), NVRCFG_BUSY);
    EXPECT_EQ(text, "before");
    EXPECT_EQ(fake::debug_texts(),
              (Strings{"nvrcfg_get_rr_settings fail\n", "nvrcfg_get_rr_settings fail\n"}));
}

TEST_F(TaskLookup, FoundTextIsReplacedWhole) {
    store("12", "", 99);
    EXPECT_EQ(get_task_name_by_task_id("12", text), 0);
    EXPECT_EQ(text, "");
    text = "before";
    EXPECT_EQ(get_task_status_by_task_id("12", text), 0);
    EXPECT_EQ(text, "") << "a status outside the table";
}

TEST_F(TaskLookup, StatusQueryGivesTheWord) {
    store("12", "Night copy", 4);
    store("13", "Day copy", 7);
    EXPECT_EQ(status_reply("12"), status_reply_of("running"));
    EXPECT_EQ(status_reply("13"), status_reply_of("prepare_stop"));
}

TEST_F(TaskLookup, StatusQueryGivesEveryWord) {
    const Strings words = {"success", "new",    "wait",   "prepare_start",
                           "running", "cancel", "failed", "prepare_stop"};
    for (int status = 0; status < 8; ++status) {
        fake::reset();
        store("1", "", status);
        EXPECT_EQ(status_reply("1"), status_reply_of(words[static_cast<std::size_t>(status)]));
    }
}

TEST_F(TaskLookup, StatusOutsideTheTableIsAnEmptyWord) {
    for (const int status : {99, 8, -1}) {
        fake::reset();
        store("1", "", status);
        EXPECT_EQ(status_reply("1"), status_reply_of("")) << status;
    }
}

TEST_F(TaskLookup, StatusQueryOfAnUnknownTaskIsASuccessWithAnEmptyWord) {
    store("12", "Night copy", 4);
    EXPECT_EQ(status_reply("13"), status_reply_of(""));
    EXPECT_EQ(status_reply(""), status_reply_of(""));
    EXPECT_EQ(status_reply(nullptr), status_reply_of(""));
}

TEST_F(TaskLookup, StatusQueryWithAnUnreadableStoreIsASuccessWithAnEmptyWord) {
    fake::fail("__nvrcfg_get_rr_settings", NVRCFG_UNAVAILABLE);
    EXPECT_EQ(status_reply("12"), status_reply_of(""));
    EXPECT_EQ(fake::debug_texts(), Strings{"nvrcfg_get_rr_settings fail\n"});
}

TEST_F(TaskLookup, StatusQueryThatThrowsIsASuccessWithAnEmptyWord) {
    fake::throw_from("__nvrcfg_get_rr_settings");
    EXPECT_EQ(status_reply("12"), status_reply_of(""));
    EXPECT_EQ(fake::debug_texts(), Strings{"error code = 0\n"});
}

}  // namespace
