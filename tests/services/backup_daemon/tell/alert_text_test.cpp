// The words of alerts: what they say, and that nobody's name breaks out of its place.
#include "services/backup_daemon/tell/alert_text.h"

#include <gtest/gtest.h>
#include <json-c/json.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "platform/json_ptr.h"
#include "platform/standalone/store/utf8.h"

namespace {

using namespace services;

constexpr long long NOON = 1709294400;  // 2024-03-01 12:00 UTC
constexpr char RECORDER[] = "nvr (01234567)";

/// In Central European Time.
class AlertTextTest : public ::testing::Test {
protected:
    AlertTextTest() {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0", 1);
        tzset();
    }
    ~AlertTextTest() override {
        unsetenv("TZ");
        tzset();
    }

    static Problem failed_run() {
        return {.key = {ProblemKind::run_failed, "3"},
                .tasks = {{.id = "3", .name = "Door", .last_success = NOON - 3600}},
                .is_there = true,
                .since = NOON,
                .detail = "//nas/x: there is no such share: No such file or directory",
                .run = 12};
    }

    static Problem full_share() {
        return {.key = {ProblemKind::share_nearly_full, "//nas:445/x"},
                .tasks = {{.id = "3", .name = "Door", .last_success = NOON},
                          {.id = "4", .name = "Yard", .last_success = {}}},
                .is_there = true,
                .since = NOON,
                .detail = "1 of 100 bytes are free"};
    }

    static AlertMessage told(const Problem& problem, AlertEvent event = AlertEvent::raised) {
        return alert_message(event, problem, RECORDER, NOON + 60);
    }

    /// A member of an alert's object, as JSON.
    static std::string member(const AlertMessage& message, const char* name) {
        const JsonPtr object(json_tokener_parse(message.object.c_str()));
        json_object* found = nullptr;
        EXPECT_TRUE(json_object_object_get_ex(object.get(), name, &found)) << name;
        return json_object_to_json_string_ext(
            found, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
    }
};

TEST_F(AlertTextTest, FailedRunIsToldWithAllThatIsKnown) {
    const AlertMessage message = told(failed_run());
    EXPECT_EQ(message.id.size(), 32U);
    EXPECT_EQ(message.subject,
              "Recording backup of nvr (01234567): task 3 \"Door\": its run 12 failed");
    EXPECT_EQ(message.text,
              "Recorder: nvr (01234567)\n"
              "What happened: task 3 \"Door\": its run 12 failed\n"
              "In words: //nas/x: there is no such share: No such file or directory\n"
              "Since: 2024-03-01 13:00:00 +0100 (CET)\n"
              "Last success of task 3 \"Door\": 2024-03-01 12:00:00 +0100 (CET)\n"
              "What to do: \"destPath\" begins with the share's name: `smbclient -L //server -U "
              "user`\n");
}

TEST_F(AlertTextTest, ObjectHasTheSameForPrograms) {
    const AlertMessage message = told(failed_run());
    EXPECT_EQ(member(message, "id"), '"' + message.id + '"');
    EXPECT_EQ(member(message, "event"), R"("raised")");
    EXPECT_EQ(member(message, "problem"), R"("run_failed")");
    EXPECT_EQ(member(message, "recorder"), "\"nvr (01234567)\"");
    EXPECT_EQ(member(message, "task"), R"({"id":"3","name":"Door"})");
    EXPECT_EQ(member(message, "since"),
              R"({"seconds":1709294400,"rfc3339":"2024-03-01T13:00:00+01:00"})");
    EXPECT_EQ(member(message, "time"),
              R"({"seconds":1709294460,"rfc3339":"2024-03-01T13:01:00+01:00"})");
    EXPECT_EQ(member(message, "last_success"),
              R"({"seconds":1709290800,"rfc3339":"2024-03-01T12:00:00+01:00"})");
    EXPECT_NE(member(message, "what_to_do").find("smbclient"), std::string::npos);
    EXPECT_NE(member(message, "text").find("its run 12 failed"), std::string::npos);
    EXPECT_EQ(message.object.find("destination"), std::string::npos);
}

TEST_F(AlertTextTest, ReminderAndEndSayWhatTheyAre) {
    EXPECT_NE(told(failed_run(), AlertEvent::reminder).subject.find("still: task 3"),
              std::string::npos);
    Problem over = failed_run();
    over.is_there = false;
    const AlertMessage message = told(over, AlertEvent::resolved);
    EXPECT_TRUE(message.subject.ends_with(": over: task 3 \"Door\": its runs failed"));
    EXPECT_NE(message.text.find("Until: 2024-03-01 13:01:00 +0100 (CET)\n"), std::string::npos);
    EXPECT_TRUE(message.text.ends_with("What to do: nothing: it is over\n"));
    EXPECT_EQ(message.text.find("In words"), std::string::npos);
    EXPECT_EQ(member(message, "event"), R"("resolved")");
}

TEST_F(AlertTextTest, ShareIsToldWithItsTasks) {
    const AlertMessage message = told(full_share());
    EXPECT_TRUE(message.subject.ends_with(": share //nas:445/x is nearly full"));
    EXPECT_NE(message.text.find("Last success of task 4 \"Yard\": never\n"), std::string::npos);
    EXPECT_NE(message.text.find("1 of 100 bytes are free"), std::string::npos);
    EXPECT_EQ(member(message, "task"), "null");
    EXPECT_EQ(member(message, "last_success"), "null");
    EXPECT_EQ(member(message, "destination"), R"("//nas:445/x")");
    EXPECT_TRUE(
        member(message, "tasks").ends_with(R"({"id":"4","name":"Yard","last_success":null}])"));
}

TEST_F(AlertTextTest, TaskThatNeverSucceededSaysSo) {
    Problem late = failed_run();
    late.key.kind = ProblemKind::overdue;
    late.tasks[0].last_success.reset();
    const AlertMessage message = told(late);
    EXPECT_TRUE(message.subject.ends_with(": task 3 \"Door\" is overdue"));
    EXPECT_NE(message.text.find("Last success of task 3 \"Door\": never\n"), std::string::npos);
    EXPECT_EQ(member(message, "last_success"), "null");
}

TEST_F(AlertTextTest, NamesOfOthersStayOnTheirLine) {
    Problem problem = failed_run();
    problem.tasks[0].name = "a\r\nBcc: x@example.org\n\nbody\x1b[2J\xff";
    problem.detail = "x\nWhat to do: send money\n";
    const AlertMessage plain = told(failed_run());
    const AlertMessage message = told(problem);
    for (const unsigned char byte : message.subject) EXPECT_GE(byte, ' ');
    EXPECT_EQ(std::count(message.text.begin(), message.text.end(), '\n'),
              std::count(plain.text.begin(), plain.text.end(), '\n'));
    EXPECT_NE(message.subject.find("a\\r\\nBcc: "), std::string::npos);
    for (const std::string* text : {&message.subject, &message.text, &message.object})
        EXPECT_TRUE(standalone::is_utf8(*text));
}

TEST_F(AlertTextTest, LongNamesAndReasonsAreCut) {
    Problem problem = failed_run();
    for (int count = 0; count < 5000; ++count) problem.tasks[0].name += "\u00fc";
    problem.detail = std::string(10'000, 'x');
    const AlertMessage message = told(problem);
    EXPECT_LT(message.subject.size(), 320U);
    EXPECT_TRUE(message.subject.ends_with(": its run 12 failed"));
    EXPECT_LT(message.text.size(), 3000U);
    EXPECT_LT(message.object.size(), 10'000U);
    EXPECT_TRUE(standalone::is_utf8(message.subject));
    Problem share = full_share();
    share.key.subject = "//" + std::string(10'000, 's');
    EXPECT_TRUE(told(share).subject.ends_with(" is nearly full"));
}

TEST_F(AlertTextTest, EachAlertHasAnIdentifierOfItsOwn) {
    EXPECT_NE(told(failed_run()).id, told(failed_run()).id);
}

TEST_F(AlertTextTest, TestIsOfNoProblem) {
    const AlertMessage message = test_message(RECORDER, NOON);
    EXPECT_EQ(message.subject, "Recording backup of nvr (01234567): test");
    EXPECT_NE(message.text.find("Time: 2024-03-01 13:00:00 +0100 (CET)\n"), std::string::npos);
    EXPECT_EQ(member(message, "event"), R"("test")");
    for (const char* name : {"problem", "task", "since", "last_success"})
        EXPECT_EQ(member(message, name), "null") << name;
}

TEST_F(AlertTextTest, RecorderIsNamedByItsMachineAndItsIdentity) {
    const std::string name = recorder_name("0123456789abcdef0123456789abcdef");
    EXPECT_TRUE(name.ends_with(" (01234567)")) << name;
    EXPECT_GT(name.size(), 11U);
}

}  // namespace
