// The daemon's replies, byte for byte.
#include "services/backup_daemon/front/daemon_replies.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

std::vector<std::string> numbers(int last) {
    std::vector<std::string> texts;
    for (int number = 1; number <= last; ++number) texts.push_back(std::to_string(number));
    return texts;
}

TEST(DaemonReplies, DoneIsCodeZeroAlone) {
    EXPECT_EQ(done_reply().content_type, "application/json");
    EXPECT_EQ(done_reply().body, R"({"retCode":0})");
}

TEST(DaemonReplies, WaitingTasksHaveTheirPlaces) {
    EXPECT_EQ(waiting_reply({}).body, R"({"retCode":0,"watinTask_info":[]})");
    EXPECT_EQ(waiting_reply({"3", "1"}).body,
              R"({"retCode":0,"watinTask_info":[{"taskID":"3","seq":0},{"taskID":"1","seq":1}]})");
}

TEST(DaemonReplies, WaitingTasksBeyondTheEleventhAreLeftOut) {
    const std::string eleven = waiting_reply(numbers(11)).body;
    EXPECT_NE(eleven.find(R"({"taskID":"11","seq":10}]})"), std::string::npos) << eleven;
    EXPECT_EQ(waiting_reply(numbers(12)).body, eleven);
    EXPECT_EQ(waiting_reply(numbers(300)).body, eleven);
}

TEST(DaemonReplies, RunningTasksHaveFiguresOfOneDecimal) {
    EXPECT_EQ(running_reply(2, {}).body,
              R"({"retCode":0,"max_parallel_task_num":2,"runningTask_info":[]})");
    EXPECT_EQ(running_reply(5, {{"3", 33.3, 104857600}, {"4", 0, 0.25}}).body,
              R"({"retCode":0,"max_parallel_task_num":5,"runningTask_info":[)"
              R"({"taskID":"3","finishRate":33.3,"transferRate":104857600.0},)"
              R"({"taskID":"4","finishRate":0.0,"transferRate":0.2}]})");
}

}  // namespace
