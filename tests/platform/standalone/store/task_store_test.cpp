// The stand-alone store of backup tasks: settings texts, identifiers, queue, support.
#include "platform/standalone/store/task_store.h"

#include <thread>

#include "platform/nvrcfg.h"
#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/task_fields.h"
#include "platform/utilities.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

std::string base64(const std::string& text) {
    std::string encoded;
    b64_encode_v2(reinterpret_cast<const unsigned char*>(text.data()),
                  static_cast<unsigned>(text.size()), encoded);
    return encoded;
}

std::string content(const std::string& inner) {
    return R"({"taskName": "n", "content": ")" + base64(inner) + R"("})";
}

const char inner_text[] =
    R"({ "chIdxList": "1,3,4", "backupType": 1, "backupDays": -5, "backupStartDay": "2024-03-01", )"
    R"("backupEndDay": "2024-03-09", "backupImmediately": false, "recordingType": 2, )"
    R"("recordingFormat": 1, "remoteKeepRec": true, "remoteKeepRecDays": 99, )"
    R"("remoteOverwriteType": 1 })";

std::string full_text() {
    return R"({ "taskName": "Nightly", "serverIP": "10.0.0.9", "port": 445, "username": "u", )"
           R"("password": "pä$$", "destPath": "/share/a", "scheduleType": 1, )"
           R"("scheduleWeekly": 0, "scheduleHour": 99, "scheduleMin": -1, )"
           R"("scheduleEveryHours": 6, "content": ")" +
           base64(inner_text) +
           R"(", "enable": true, "status": 1, "startTime": "", "endTime": "" })";
}

class TaskStoreTest : public StateTest {
protected:
    int apply(const std::string& text) { return __nvrcfg_set_rr_settings("test", __LINE__, text); }

    std::list<TDataBackupConfig> tasks() {
        std::list<TDataBackupConfig> list;
        EXPECT_EQ(__nvrcfg_get_rr_settings("test", __LINE__, list), 0);
        return list;
    }

    void create(int count) {
        for (int at = 0; at < count; ++at) ASSERT_EQ(apply(R"({"taskName": "n"})"), 0);
    }

    /// Identifiers in the queue's order, a "p" behind those that may go beside others.
    std::string queue() {
        std::string places;
        for (const QueuePlace& place : store_.queue())
            places += (places.empty() ? "" : " ") + place.task_id + (place.parallel ? "p" : "");
        return places;
    }

    /// Status, start and end time.
    std::string state(const std::string& task_id) {
        const auto task = store_.find(task_id).value();
        return std::string(table_text(strStatus_Arr, task.status)) + ' ' + task.startTime + ' ' +
               task.endTime;
    }

    Database database_{config_database_path(), Database::Access::writing};
    TaskStore store_{database_};
};

TEST_F(TaskStoreTest, KnownTasksAreWithoutTheirPasswords) {
    ASSERT_EQ(apply(full_text()), 0);
    EXPECT_EQ(store_.known().front().serverIP, "10.0.0.9");
    EXPECT_EQ(store_.known().front().password, "");
    EXPECT_EQ(store_.list().front().password, "pä$$");
}

TEST_F(TaskStoreTest, KnownTasksAreReadAgainOnlyWhenSomebodyHasChangedThem) {
    create(1);
    const auto* first = &store_.known().front();
    EXPECT_EQ(&store_.known().front(), first);
    create(1);  // by another connection
    EXPECT_EQ(store_.known().size(), 2U);
    store_.set_state("1", {.status = TASK_WAIT, .started = {}, .ended = {}});
    EXPECT_EQ(store_.known().front().status, TASK_WAIT);
    store_.remove("1");
    EXPECT_EQ(store_.known().size(), 1U);
    EXPECT_EQ(store_.known().front().taskID, "2");
}

TEST_F(TaskStoreTest, KnownTasksAreNotWhatATransactionHasTakenBack) {
    create(1);
    store_.known();
    {
        const Transaction transaction = store_.transaction();
        store_.set_state("1", {.status = TASK_WAIT, .started = {}, .ended = {}});
    }
    EXPECT_EQ(store_.known().front().status, store_.list().front().status);
    EXPECT_NE(store_.known().front().status, TASK_WAIT);
}

TEST_F(TaskStoreTest, KeepsEveryMemberOfASettingsText) {
    ASSERT_EQ(apply(full_text()), 0);
    const TDataBackupConfig task = tasks().front();
    EXPECT_EQ(task.taskID, "1");
    EXPECT_EQ(task.taskName, "Nightly");
    EXPECT_EQ(task.serverIP, "10.0.0.9");
    EXPECT_EQ(task.port, 445);
    EXPECT_EQ(task.username, "u");
    EXPECT_EQ(task.password, "pä$$");
    EXPECT_EQ(task.destPath, "/share/a");
    EXPECT_EQ(task.scheduleType, 1);
    EXPECT_EQ(task.scheduleHour, 99);
    EXPECT_EQ(task.scheduleMin, -1);
    EXPECT_EQ(task.scheduleEveryHours, 6);
    EXPECT_TRUE(task.enable);
    EXPECT_EQ(task.status, TASK_NEW);
}

TEST_F(TaskStoreTest, HasTheFieldsInTheirOrderBehindTheIdentifier) {
    Statement column = database_.prepare("SELECT name FROM pragma_table_info('task')");
    ASSERT_TRUE(column.step());
    EXPECT_EQ(column.text(0), "taskID");
    for (const TaskField& field : task_fields()) {
        ASSERT_TRUE(column.step());
        EXPECT_EQ(column.text(0), field.name);
    }
    EXPECT_FALSE(column.step());
}

TEST_F(TaskStoreTest, KeepsEveryMemberOfTheContent) {
    ASSERT_EQ(apply(full_text()), 0);
    const TDataBackupConfig task = tasks().front();
    EXPECT_EQ(task.chIdxList, "1,3,4");
    EXPECT_EQ(task.backupType, 1);
    EXPECT_EQ(task.backupDays, -5);
    EXPECT_EQ(task.backupStartDay, "2024-03-01");
    EXPECT_EQ(task.backupEndDay, "2024-03-09");
    EXPECT_FALSE(task.backupImmediately);
    EXPECT_EQ(task.recordingType, 2);
    EXPECT_EQ(task.recordingFormat, 1);
    EXPECT_TRUE(task.remoteKeepRec);
    EXPECT_EQ(task.remoteKeepRecDays, 99);
    EXPECT_EQ(task.remoteOverwriteType, 1);
}

TEST_F(TaskStoreTest, ChangesJustTheMembersThatATextCarries) {
    ASSERT_EQ(apply(full_text()), 0);
    const TDataBackupConfig before = tasks().front();
    ASSERT_EQ(apply(R"({"taskID": "1", "enable": false})"), 0);
    const TDataBackupConfig after = tasks().front();
    EXPECT_FALSE(after.enable);
    EXPECT_EQ(after.taskName, before.taskName);
    EXPECT_EQ(after.chIdxList, before.chIdxList);
    EXPECT_EQ(after.status, before.status);
    EXPECT_EQ(tasks().size(), 1U);
}

TEST_F(TaskStoreTest, WritesNoMemberThatATextDoesNotCarry) {
    ASSERT_EQ(apply(full_text()), 0);
    database_.run(
        "CREATE TRIGGER guard BEFORE UPDATE OF password, status ON task "
        "BEGIN SELECT RAISE(ABORT, 'written'); END");
    EXPECT_EQ(apply(R"({"taskID": "1", "enable": false})"), 0);
    EXPECT_FALSE(tasks().front().enable);
    EXPECT_NE(apply(R"({"taskID": "1", "enable": true, "status": 1})"), 0);
    EXPECT_FALSE(tasks().front().enable);
}

TEST_F(TaskStoreTest, LooksForTheTaskOfATextThatCarriesNothingElse) {
    ASSERT_EQ(apply(full_text()), 0);
    EXPECT_EQ(apply(R"({"taskID": "1"})"), 0);
    EXPECT_EQ(tasks().front().taskName, "Nightly");
    EXPECT_EQ(apply(R"({"taskID": "2"})"), NVRCFG_UNKNOWN_TASK);
}

TEST_F(TaskStoreTest, NumbersTasksOneAboveTheHighestEverGiven) {
    create(3);
    store_.remove("3");
    store_.remove("2");
    ASSERT_EQ(tasks().size(), 1U);
    create(1);
    EXPECT_EQ(tasks().back().taskID, "4");
}

TEST_F(TaskStoreTest, SpendsNoIdentifierOnARefusedText) {
    create(1);
    EXPECT_NE(apply(R"({"taskName": "n", "status": 8})"), 0);
    EXPECT_NE(apply("nonsense"), 0);
    create(1);
    EXPECT_EQ(tasks().back().taskID, "2");
}

TEST_F(TaskStoreTest, RefusesWhatIsNoJsonObject) {
    ASSERT_EQ(apply(full_text()), 0);
    const std::string nul("{\"taskName\": \"a\0b\"}", 19);
    for (const std::string& text :
         {std::string(), std::string("null"), std::string("[]"), std::string("\"text\""),
          std::string("{\"taskName\": \"a\"} x"), std::string("{\"taskName\": \"a\",}"),
          std::string("{'taskName': \"a\"}"), std::string("{\"taskName\": \"\xff\"}"),
          std::string("{\"taskName\": \"a\tb\"}"), std::string("{\"port\": 01}"),
          std::string("{\"port\": -01}"), std::string("{\"port\": 00}"),
          std::string("{\"port\": 01.5}"), std::string("{\"port\": -.5}"),
          std::string("{\"port\": NaN}"), std::string("{\"port\": 1.}"),
          std::string("{\"taskName\": \"a\""), nul})
        EXPECT_EQ(apply(text), NVRCFG_BAD_TEXT) << text;
    EXPECT_EQ(tasks().size(), 1U);
    EXPECT_EQ(tasks().front().taskName, "Nightly");
}

TEST_F(TaskStoreTest, RefusesUnknownMembersAndWrongKinds) {
    ASSERT_EQ(apply(full_text()), 0);
    for (const char* member :
         {R"("surprise": 1)", R"("spareFlag": true)", R"("chIdxList": "1")", R"("port": "445")",
          R"("port": 4.5)", R"("port": null)", R"("port": 99999999999)", R"("enable": 1)",
          R"("taskName": 7)", R"("status": 8)", R"("status": -1)", R"("scheduleType": 3)",
          R"("content": {})", R"("content": "***")", R"("content": "bm9uc2Vuc2U=")"}) {
        const std::string text =
            std::string(R"({"taskID": "1", "serverIP": "changed", )") + member + "}";
        EXPECT_EQ(apply(text), NVRCFG_BAD_MEMBER) << text;
    }
    EXPECT_EQ(tasks().front().serverIP, "10.0.0.9");
}

TEST_F(TaskStoreTest, RefusesBadMembersInsideTheContent) {
    for (const char* inner :
         {R"({"backupType": 2})", R"({"recordingType": 3})", R"({"recordingFormat": -1})",
          R"({"remoteOverwriteType": 2})", R"({"backupDays": "5"})", R"({"taskName": "x"})",
          R"({"content": ""})", R"([])",
          R"({"backupDays": 5} )"
          "x"})
        EXPECT_EQ(apply(content(inner)), NVRCFG_BAD_MEMBER) << inner;
    EXPECT_TRUE(tasks().empty());
}

TEST_F(TaskStoreTest, RefusesIdentifiersOfNoTask) {
    create(1);
    for (const char* task_id : {"2", "", "01", "+1", " 1", "1x", "0", "-1", "99999999999999999999"})
        EXPECT_EQ(apply(std::string(R"({"taskID": ")") + task_id + R"(", "enable": true})"),
                  NVRCFG_UNKNOWN_TASK)
            << task_id;
    EXPECT_EQ(apply(R"({"taskID": 1, "enable": true})"), NVRCFG_BAD_MEMBER);
    EXPECT_FALSE(tasks().front().enable);
}

/// A change of all settings of task 1 as operations write it; `name` and `id` stand there bare.
std::string whole_change(const std::string& name, const std::string& id = "1",
                         const std::string& status = "") {
    return R"({ "taskName": ")" + name +
           R"(", "serverIP": "10.0.0.8", "port": 445, "username": "u", "password": "p", )"
           R"("destPath": "/share/b", "scheduleType": 1, "scheduleWeekly": 0, )"
           R"("scheduleHour": 3, "scheduleMin": 0, "scheduleEveryHours": 6, "content": ")" +
           base64(inner_text) + R"(", "taskID": ")" + id + "\", " + status + R"("enable": true })";
}

TEST_F(TaskStoreTest, TakesAChangeOfAllSettingsAsOperationsWriteIt) {
    ASSERT_EQ(apply(full_text()), 0);
    ASSERT_EQ(apply(whole_change("Yard")), 0);
    EXPECT_EQ(tasks().front().taskName, "Yard");
    ASSERT_EQ(apply(whole_change("Door", "1", R"("status": 4, )")), 0);
    EXPECT_EQ(tasks().front().taskName, "Door");
    EXPECT_EQ(tasks().front().status, TASK_RUNNING);
    EXPECT_EQ(tasks().size(), 1U);
}

TEST_F(TaskStoreTest, RefusesAMemberGivenTwice) {
    ASSERT_EQ(apply(full_text()), 0);
    for (const char* text :
         {R"({"taskID": "1", "enable": true, "enable": false})",
          R"({"taskID": "1", "taskID": "1"})", R"({"taskName": "x","taskName":"x"})",
          R"({"taskName": "a:b", "port": 1, "port" : 1})",
          R"({"taskName": "n", "surprise": {"a": 1, "a": 1}})",
          R"({"taskName": "n", "surprise": [{"a": 1}, {"a": 1, "a": 1}]})"})
        EXPECT_EQ(apply(text), NVRCFG_BAD_TEXT) << text;
    EXPECT_EQ(apply(content(R"({"chIdxList": "1", "chIdxList": "2"})")), NVRCFG_BAD_MEMBER);
    EXPECT_EQ(tasks().size(), 1U);
    EXPECT_TRUE(tasks().front().enable);
}

TEST_F(TaskStoreTest, RefusesAnIdentifierOutOfItsPlace) {
    ASSERT_EQ(apply(full_text()), 0);
    create(1);
    const std::string inside = R"(x","taskID":"2)";
    std::string new_task = full_text();
    new_task.replace(new_task.find("Nightly"), 7, inside);
    EXPECT_EQ(apply(new_task), NVRCFG_BAD_MEMBER);
    for (const char* text :
         {R"({"taskName": "x","taskID":"2"})", R"({"enable": true, "taskID": "2"})",
          R"({"content": "e30=", "taskID": "2", "enable": true})"})
        EXPECT_EQ(apply(text), NVRCFG_BAD_MEMBER) << text;
    EXPECT_EQ(apply(whole_change(inside)), NVRCFG_BAD_TEXT);  // and there it stands twice
    EXPECT_EQ(tasks().size(), 2U);
    EXPECT_EQ(tasks().front().serverIP, "10.0.0.9");
    EXPECT_EQ(tasks().back().taskName, "n");
}

TEST_F(TaskStoreTest, RefusesMembersThatCameOutOfTheTextsOfAChange) {
    ASSERT_EQ(apply(full_text()), 0);
    for (const char* name : {R"(x","startTime":"5)", R"(x","status":4,"endTime":"5)"})
        EXPECT_EQ(apply(whole_change(name)), NVRCFG_BAD_MEMBER) << name;
    for (const char* id : {R"(1","startTime":"5)", R"(1","status":4,"endTime":"5)"})
        EXPECT_EQ(apply(whole_change("x", id)), NVRCFG_BAD_MEMBER) << id;
    for (const char* name :
         {R"(x"})", R"(x"y)", R"(")", R"(x","y)", R"(x\","status":4,"endTime":"5)"})
        EXPECT_NE(apply(whole_change(name)), 0) << name;
    EXPECT_EQ(tasks().front().taskName, "Nightly");
    EXPECT_EQ(tasks().front().startTime, "");
}

TEST_F(TaskStoreTest, KeepsEveryBackslashAsItStands) {
    for (const char* name : {R"(DOMAIN\user)", R"(DOMAIN\nick)", R"(DOMAIN\ubeef)",
                             R"(\\server\share)", R"(a\\b)", R"(end\)", R"(\/)"}) {
        ASSERT_EQ(apply(std::string(R"({"taskName": ")") + name + R"(", "username": "u"})"), 0)
            << name;
        EXPECT_EQ(tasks().back().taskName, name);
        EXPECT_EQ(tasks().back().username, "u");
    }
}

TEST_F(TaskStoreTest, MakesNoTaskOutOfAChangeThatLostItsIdentifier) {
    EXPECT_EQ(apply(R"({"enable": true})"), NVRCFG_BAD_MEMBER);
    EXPECT_EQ(apply("{}"), NVRCFG_BAD_MEMBER);
    EXPECT_TRUE(tasks().empty());
}

TEST_F(TaskStoreTest, ReportsAStoreThatIsNotThere) {
    setenv("RECORDER_STATE", "/nonexistent", 1);
    std::list<TDataBackupConfig> list(2);
    EXPECT_EQ(__nvrcfg_get_rr_settings("test", __LINE__, list), NVRCFG_UNAVAILABLE);
    EXPECT_EQ(list.size(), 2U);
    EXPECT_EQ(apply(full_text()), NVRCFG_UNAVAILABLE);
}

TEST_F(TaskStoreTest, ReportsAWriterThatHoldsTheStore) {
    const Transaction holder(database_);
    EXPECT_EQ(apply(full_text()), NVRCFG_BUSY);
}

TEST_F(TaskStoreTest, ReportsAWriterThatHoldsTheStoreWhenATaskIsChanged) {
    create(1);
    const Transaction holder(database_);
    std::thread([&] {
        limit_waiting(std::chrono::milliseconds(10));  // of this thread
        EXPECT_EQ(apply(R"({"taskID": "1", "enable": true})"), NVRCFG_BUSY);
    }).join();
}

TEST_F(TaskStoreTest, ReadsWhileAWriterHoldsTheStore) {
    create(1);
    const Transaction holder(database_);
    EXPECT_EQ(tasks().size(), 1U);
}

TEST_F(TaskStoreTest, QueuesTasksOnceAndInOrder) {
    create(3);
    store_.enqueue(QueueEnd::back, {"2", false});
    store_.enqueue(QueueEnd::back, {"1", true});
    store_.enqueue(QueueEnd::back, {"2", true});
    EXPECT_EQ(queue(), "2 1p");
    store_.enqueue(QueueEnd::front, {"3", false});
    store_.enqueue(QueueEnd::front, {"1", false});
    store_.enqueue(QueueEnd::front, {"2", true});
    EXPECT_EQ(queue(), "2p 1 3");
    store_.enqueue(QueueEnd::back, {"9", false});
    store_.enqueue(QueueEnd::front, {"9", false});
    store_.enqueue(QueueEnd::front, {"01", false});
    EXPECT_EQ(queue(), "2p 1 3");
    EXPECT_EQ(store_.find("3")->status, TASK_SUCCESS);
}

TEST_F(TaskStoreTest, PlaceRemembersWhyItsTaskWasStarted) {
    create(1);
    store_.enqueue(QueueEnd::back, {"1", false, RunCause::missed});
    store_.enqueue(QueueEnd::back, {"1", false, RunCause::hand});
    EXPECT_EQ(store_.queue()[0].cause, RunCause::missed);
    store_.enqueue(QueueEnd::front, {"1", false, RunCause::resumed});
    EXPECT_EQ(store_.queue()[0].cause, RunCause::resumed);
}

TEST_F(TaskStoreTest, TakesTasksOutOfTheQueue) {
    create(3);
    for (const char* task_id : {"1", "2", "3"}) store_.enqueue(QueueEnd::back, {task_id, false});
    store_.dequeue("1");
    store_.dequeue("1");
    store_.dequeue("03");
    EXPECT_EQ(queue(), "2 3");
    store_.remove("2");
    store_.remove("2");
    store_.remove("03");
    EXPECT_EQ(queue(), "3");
    EXPECT_EQ(tasks().size(), 2U);
}

TEST_F(TaskStoreTest, SetsFieldsForSupportAllOrNone) {
    create(1);
    EXPECT_EQ(store_.set_fields("1", {{"status", "6"}, {"extraValue1", "1.5"}, {"spareFlag", "1"}}),
              0);
    EXPECT_EQ(store_.find("1")->status, TASK_FAILED);
    EXPECT_EQ(store_.find("1")->extraValue1, 1.5F);
    EXPECT_TRUE(store_.find("1")->spareFlag);
    EXPECT_EQ(store_.set_fields("1", {{"taskName", "new"}, {"status", "8"}}), NVRCFG_BAD_MEMBER);
    EXPECT_EQ(store_.set_fields("1", {{"enable", "yes"}}), NVRCFG_BAD_MEMBER);
    EXPECT_EQ(store_.set_fields("1", {{"taskID", "2"}}), NVRCFG_BAD_MEMBER);
    EXPECT_EQ(store_.set_fields("9", {{"status", "1"}}), NVRCFG_UNKNOWN_TASK);
    EXPECT_EQ(store_.find("1")->taskName, "n");
}

TEST_F(TaskStoreTest, SetsStatusAndTimesOfATaskAndNothingElse) {
    ASSERT_EQ(apply(full_text()), 0);
    create(1);
    store_.set_state("1", {TASK_RUNNING, 1700000000, 1700000100});
    EXPECT_EQ(state("1"), "running 1700000000 1700000100");
    EXPECT_EQ(state("2"), "success  ");
    const TDataBackupConfig task = tasks().front();
    EXPECT_EQ(task.taskName, "Nightly");
    EXPECT_EQ(task.password, "pä$$");
    EXPECT_EQ(task.scheduleMin, -1);
    EXPECT_EQ(task.chIdxList, "1,3,4");
    EXPECT_TRUE(task.enable);
}

TEST_F(TaskStoreTest, UnknownTimeLeavesWhatIsStored) {
    create(1);
    store_.set_state("1", {TASK_WAIT, {}, {}});
    EXPECT_EQ(state("1"), "wait  ");
    store_.set_state("1", {TASK_RUNNING, 5000000000, {}});
    EXPECT_EQ(state("1"), "running 5000000000 ");
    store_.set_state("1", {TASK_FAILED, {}, 5000000001});
    EXPECT_EQ(state("1"), "failed 5000000000 5000000001");
    store_.set_state("1", {TASK_WAIT, {}, {}});
    EXPECT_EQ(state("1"), "wait 5000000000 5000000001");
    store_.set_state("1", {TASK_WAIT, 0, 0});
    EXPECT_EQ(state("1"), "wait 0 0");
}

TEST_F(TaskStoreTest, SetsTheStateOfNoOtherTask) {
    create(1);
    for (const char* task_id : {"2", "01", "", "x"})
        store_.set_state(task_id, {TASK_RUNNING, 1, 2});
    EXPECT_EQ(state("1"), "success  ");
}

TEST_F(TaskStoreTest, StoresATransactionAllOrNothing) {
    create(2);
    store_.enqueue(QueueEnd::back, {"1", false});
    const auto change = [this] {
        store_.set_state("1", {TASK_CANCEL, {}, 7});
        store_.dequeue("1");
        store_.enqueue(QueueEnd::front, {"2", true});
        EXPECT_EQ(queue(), "2p");
    };
    {
        const Transaction given_up = store_.transaction();
        change();
    }
    EXPECT_EQ(state("1"), "success  ");
    EXPECT_EQ(queue(), "1");
    Transaction transaction = store_.transaction();
    change();
    transaction.commit();
    EXPECT_EQ(state("1"), "cancel  7");
    EXPECT_EQ(queue(), "2p");
}

TEST_F(TaskStoreTest, HandsOutChannelsWithStreamsAndLeavesRemovedOnesOut) {
    ChannelStore channels(database_);
    Channel channel{4, "g4", "1.1.1.1", "Door", "B", "M", 2, "/nowhere", false, {}};
    ASSERT_TRUE(channels.add(channel));
    channel.index = 1;
    channel.guid = "g1";
    channel.streams = 0;
    ASSERT_TRUE(channels.add(channel));
    EXPECT_FALSE(channels.add(channel));
    channel.index = 2;
    channel.guid = "g2";
    ASSERT_TRUE(channels.add(channel));
    ASSERT_TRUE(channels.remove(2));
    std::string text;
    std::string json;
    ASSERT_EQ(cfgsvc_get_channel_setting(false, 0, text), 0);
    ASSERT_EQ(b64_decode_v2(text, json), 0);
    EXPECT_EQ(
        json,
        R"({"datas":[{"channel_index":1,"guid":"g1","ip":"1.1.1.1","name":"Door","brand":"B",)"
        R"("model":"M"},{"channel_index":4,"guid":"g4","ip":"1.1.1.1","name":"Door",)"
        R"("brand":"B","model":"M","stream_state":[4,4]}]})");
}

}  // namespace
