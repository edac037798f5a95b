// Which texts are notices, and what they ask for.
#include "services/backup_daemon/front/notice.h"

#include <gtest/gtest.h>

using services::BadNotice;
using services::Notice;
using services::parse_notice;

namespace {

std::string with_task_info(const std::string& members) {
    return R"({"notice_reason": {"type": 1030, "action": 1}, "task_info": {)" + members + "}}";
}

TEST(Notice, ReasonAloneIsAReload) {
    const auto notice = parse_notice(R"({ "notice_reason": { "type": 1030, "action": 1 } })");
    EXPECT_EQ(notice.kind, Notice::Kind::reload);
}

TEST(Notice, StartCarriesTaskAndFlagsInAnyOrder) {
    const auto notice =
        parse_notice(with_task_info(R"("is_parallel_running": false, "taskID": 12, )"
                                    R"("stop_running_task": true, "start_task": true)"));
    EXPECT_EQ(notice.kind, Notice::Kind::start);
    EXPECT_EQ(notice.task_id, "12");
    EXPECT_TRUE(notice.stop_running);
    EXPECT_FALSE(notice.parallel);
}

TEST(Notice, ParallelStartSetsOnlyThatFlag) {
    const auto notice =
        parse_notice(with_task_info(R"("start_task": true, "taskID": 1, )"
                                    R"("stop_running_task": false, "is_parallel_running": true)"));
    EXPECT_TRUE(notice.parallel);
    EXPECT_FALSE(notice.stop_running);
}

TEST(Notice, AbsentFlagsAreFalse) {
    const auto notice = parse_notice(with_task_info(R"("start_task": true, "taskID": 1)"));
    EXPECT_FALSE(notice.parallel);
    EXPECT_FALSE(notice.stop_running);
}

TEST(Notice, MembersWithAZeroInTheirNamesAreNotThoseThatTheyBeginWith) {
    for (const char* member : {R"("taskID\u0000": 12)", R"("taskID\u0000x" : 12)"})
        EXPECT_THROW(parse_notice(with_task_info(std::string(R"("start_task": false, )") + member)),
                     BadNotice)
            << member;
    EXPECT_EQ(
        parse_notice(with_task_info(R"("start_task": false, "x": "a\u0000", "taskID": 3)")).task_id,
        "3");
}

TEST(Notice, StopWithoutTaskMeansWhateverRuns) {
    const auto notice = parse_notice(with_task_info(R"("start_task": false)"));
    EXPECT_EQ(notice.kind, Notice::Kind::stop);
    EXPECT_EQ(notice.task_id, "");
}

TEST(Notice, StopWithTaskMeansThatTask) {
    const auto notice =
        parse_notice(with_task_info(R"("start_task": false, "taskID": 7, )"
                                    R"("is_parallel_running": false, "stop_running_task": true)"));
    EXPECT_EQ(notice.kind, Notice::Kind::stop);
    EXPECT_EQ(notice.task_id, "7");
}

TEST(Notice, UnknownMembersAreSkipped) {
    EXPECT_EQ(parse_notice(with_task_info(R"("start_task": false, "later": [1])")).kind,
              Notice::Kind::stop);
}

TEST(Notice, IdentifiersOutsideThirtyTwoBitsStayWhole) {
    const auto notice = parse_notice(with_task_info(R"("start_task": true, "taskID": 4294967297)"));
    EXPECT_EQ(notice.task_id, "4294967297");
}

class WrongNotice : public testing::TestWithParam<std::string> {};

TEST_P(WrongNotice, IsRefused) {
    EXPECT_THROW(parse_notice(GetParam()), BadNotice);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, WrongNotice,
    testing::Values(
        "", "   ", "null", "7", "[]", "{", "{}", std::string("{}\0{}", 5),
        R"({"notice_reason": {"type": 1030, "action": 1}} more)",
        R"({"notice_reason": {"type": 1030, "action": 1})", R"({"notice_reason": 1030})",
        R"({"notice_reason": {"type": 1030}})", R"({"notice_reason": {"action": 1}})",
        R"({"notice_reason": {"type": 1031, "action": 1}})",
        R"({"notice_reason": {"type": 1030, "action": 2}})",
        R"({"notice_reason": {"type": "1030", "action": 1}})",
        R"({"notice_reason": {"type": 1030, "action": 1}, "task_info": []})",
        R"({"notice_reason": {"type": 1030, "action": 1}, "task_info": null})", with_task_info(""),
        with_task_info(R"("taskID": 3)"), with_task_info(R"("start_task": 1)"),
        with_task_info(R"("start_task": true)"),
        with_task_info(R"("start_task": true, "taskID": "3")"),
        with_task_info(R"("start_task": true, "taskID": 3.0)"),
        with_task_info(R"("start_task": true, "taskID": 3, "stop_running_task": 0)"),
        with_task_info(R"("start_task": true, "taskID": 3, "is_parallel_running": "no")"),
        with_task_info("\"start_task\": false, \"name\": \"\xC3\x28\""), std::string(100000, '[')));

}  // namespace
