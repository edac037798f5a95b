// Which tasks wait and which run: starts, the queue's order, the limit, the course of a run.
#include "services/backup_daemon/when/run_queue.h"

#include "tests/services/backup_daemon/when/queue_fixture.h"

namespace {

TEST_F(RunQueueTest, StartedTaskWaits) {
    occupy();
    EXPECT_TRUE(start("2"));
    EXPECT_EQ(queue.waiting(), Words{"2"});
    EXPECT_EQ(state("2"), "wait - -");
    EXPECT_EQ(state("1"), "new - -");
}

TEST_F(RunQueueTest, StartedTaskRunsAtOnceWhenNothingElseDoes) {
    EXPECT_TRUE(start("2"));
    EXPECT_EQ(runner.said, Words{"begin 2"});
    EXPECT_EQ(queue.waiting(), Words{});
    EXPECT_EQ(state("2"), "prepare_start 1000 -");
}

TEST_F(RunQueueTest, StartsQueueUpInOrder) {
    occupy();
    limit = 1;
    start("3");
    start("1", false, true);
    start("2");
    EXPECT_EQ(queue.waiting(), (Words{"3", "1", "2"}));
}

TEST_F(RunQueueTest, StartThatStopsWhatRunsComesFirst) {
    occupy();
    start("1");
    start("2");
    start("3", true);
    EXPECT_EQ(queue.waiting(), (Words{"3", "1", "2"}));
    start("2", true);
    EXPECT_EQ(queue.waiting(), (Words{"2", "3", "1"}));
    EXPECT_EQ(runner.said, Words{"cancel 4"});
}

TEST_F(RunQueueTest, StartBesideWhatRunsTakesNobodysPlace) {
    occupy();
    limit = 1;
    start("1");
    start("2", true, true);
    EXPECT_EQ(queue.waiting(), (Words{"1", "2"}));
    EXPECT_EQ(runner.said, Words{});
    EXPECT_EQ(state("4"), "prepare_start 1000 -");
}

TEST_F(RunQueueTest, SecondStartKeepsThePlace) {
    occupy();
    start("1");
    start("2");
    start("1");
    EXPECT_EQ(queue.waiting(), (Words{"1", "2"}));
    EXPECT_EQ(state("1"), "wait - -");
}

TEST_F(RunQueueTest, UnknownTaskIsNotStarted) {
    for (const char* task_id : {"0", "-1", "5", "01", "4294967297", ""})
        for (const bool stop_running : {false, true}) EXPECT_FALSE(start(task_id, stop_running));
    EXPECT_EQ(queue.waiting(), Words{});
    EXPECT_EQ(runner.said, Words{});
}

TEST_F(RunQueueTest, StartOfAnUnknownTaskStopsNothing) {
    occupy();
    EXPECT_FALSE(start("5", true));
    EXPECT_EQ(runner.said, Words{});
    EXPECT_EQ(state("4"), "prepare_start 1000 -");
}

TEST_F(RunQueueTest, OtherOrdersAboutAnUnknownTaskChangeNothing) {
    occupy();
    start("1");
    for (const char* task_id : {"5", "0", "01", "no number"}) {
        queue.stop(task_id);
        queue.start_by_schedule({{task_id, standalone::RunCause::schedule}});
        queue.remove(task_id);
    }
    EXPECT_EQ(runner.said, Words{});
    EXPECT_EQ(queue.waiting(), Words{"1"});
    EXPECT_EQ(store.list().size(), 4U);
}

TEST_F(RunQueueTest, DisabledTaskIsStartedOnOrder) {
    ASSERT_EQ(store.apply_settings(R"({"taskID": "1", "enable": false})"), 0);
    EXPECT_TRUE(start("1"));
    EXPECT_EQ(runner.said, Words{"begin 1"});
}

TEST_F(RunQueueTest, RunGoesThroughItsStates) {
    start("1");
    EXPECT_EQ(runner.said, Words{"begin 1"});
    EXPECT_EQ(state("1"), "prepare_start 1000 -");
    now = 1010;
    runner.connect("1");
    EXPECT_EQ(state("1"), "running 1000 -");
    now = 1030;
    runner.end("1", Outcome::success);
    EXPECT_EQ(state("1"), "success 1000 1030");
}

TEST_F(RunQueueTest, NextRunKeepsTheEndOfTheLastOneUntilItsOwn) {
    start("1");
    now = 1030;
    runner.end("1", Outcome::failed);
    EXPECT_EQ(state("1"), "failed 1000 1030");
    now = 1050;
    start("1");
    EXPECT_EQ(state("1"), "prepare_start 1050 1030");
    now = 1060;
    runner.end("1", Outcome::cancelled);
    EXPECT_EQ(state("1"), "cancel 1050 1060");
}

TEST_F(RunQueueTest, TaskThatMayNotGoBesideOthersWaitsForTheirEnd) {
    start("1");
    start("2");
    EXPECT_EQ(state("2"), "wait - -");
    now = 1030;
    runner.end("1", Outcome::failed);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
    EXPECT_EQ(state("1"), "failed 1000 1030");
    EXPECT_EQ(state("2"), "prepare_start 1030 -");
}

TEST_F(RunQueueTest, TaskThatMayNotGoBesideOthersWaitsForAllOfThem) {
    start("1");
    start("2", false, true);
    start("3");
    runner.end("2", Outcome::success);
    EXPECT_EQ(queue.waiting(), Words{"3"});
    runner.end("1", Outcome::success);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2", "begin 3"}));
}

TEST_F(RunQueueTest, ParallelTasksRunSideBySideUpToTheLimit) {
    start("1");
    start("2", false, true);
    start("3", false, true);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
    EXPECT_EQ(queue.waiting(), Words{"3"});
    runner.end("1", Outcome::success);
    EXPECT_EQ(runner.said.back(), "begin 3");
}

TEST_F(RunQueueTest, LimitIsAskedAfreshAtEachLook) {
    start("1");
    start("2", false, true);
    start("3", false, true);
    queue.look();
    EXPECT_EQ(queue.waiting(), Words{"3"});
    limit = 3;
    queue.look();
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2", "begin 3"}));
    limit = 1;
    start("4", false, true);
    runner.end("1", Outcome::success);
    runner.end("2", Outcome::success);
    EXPECT_EQ(queue.waiting(), Words{"4"});
    runner.end("3", Outcome::success);
    EXPECT_EQ(runner.said.back(), "begin 4");
}

TEST_F(RunQueueTest, LimitIsAskedOnceALookHoweverManyWait) {
    int asked = 0;
    NotingRunner runs;
    services::RunQueue counted{store, history, runs, [&] { return ++asked, limit; },
                               [this] { return now; }};
    for (const char* task_id : {"1", "2", "3", "4"}) counted.start({task_id, false, true});
    ASSERT_EQ(counted.waiting(), (Words{"3", "4"}));
    asked = 0;
    counted.look();
    EXPECT_EQ(asked, 1);
}

TEST_F(RunQueueTest, LimitIsNotAskedWhereAllTasksAreAtRest) {
    int asked = 0;
    NotingRunner runs;
    services::RunQueue counted{store, history, runs, [&] { return ++asked, limit; },
                               [this] { return now; }};
    counted.reload();
    counted.look();
    EXPECT_EQ(counted.waiting(), Words{});
    EXPECT_EQ(asked, 0);
    counted.start({"1"});
    EXPECT_GT(asked, 0);
}

TEST_F(RunQueueTest, RunThatIsBeingStoppedStillCountsAgainstTheLimit) {
    start("1");
    start("2", false, true);
    queue.stop("1");
    start("3", false, true);
    EXPECT_EQ(queue.waiting(), Words{"3"});
    runner.end("1", Outcome::cancelled);
    EXPECT_EQ(runner.said.back(), "begin 3");
}

TEST_F(RunQueueTest, ParallelTaskPassesOneThatWaitsForAll) {
    start("1");
    start("2");
    start("3", false, true);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 3"}));
    EXPECT_EQ(queue.waiting(), Words{"2"});
}

TEST_F(RunQueueTest, StopFlagMeansNothingBesideTheParallelOne) {
    start("1");
    start("2", true, true);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
}

TEST_F(RunQueueTest, SecondStartOfARunningTaskLetsItGoOn) {
    start("1");
    EXPECT_TRUE(start("1"));
    EXPECT_TRUE(start("1", false, true));
    EXPECT_EQ(runner.said, Words{"begin 1"});
    EXPECT_EQ(queue.waiting(), Words{});
    EXPECT_EQ(state("1"), "prepare_start 1000 -");
    runner.end("1", Outcome::success);
    EXPECT_EQ(runner.said, Words{"begin 1"});
}

TEST_F(RunQueueTest, ScheduleStartsATaskBesideOthersButNeverTwice) {
    queue.start_by_schedule({{"1", standalone::RunCause::schedule}});
    queue.start_by_schedule({{"1", standalone::RunCause::schedule}});
    queue.start_by_schedule({{"2", standalone::RunCause::schedule}});
    queue.start_by_schedule({{"1", standalone::RunCause::schedule}});
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
    EXPECT_EQ(queue.waiting(), Words{});
    queue.start_by_schedule({{"3", standalone::RunCause::schedule}});
    queue.start_by_schedule({{"3", standalone::RunCause::schedule}});
    EXPECT_EQ(queue.waiting(), Words{"3"});
}

}  // namespace
