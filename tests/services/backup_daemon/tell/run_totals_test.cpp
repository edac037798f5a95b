// What the runs of each task come to since the daemon began, whatever becomes of their rows.
#include "services/backup_daemon/tell/run_totals.h"

#include "services/backup_daemon/memory/run_history.h"
#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;
using standalone::RunCause;
using standalone::RunOutcome;

class RunTotalsTest : public MemoryTest {
protected:
    void open(const std::string& task_id) { history_.open(task_id, "Doors", RunCause::hand, 100); }

    void note(const std::string& task_id, long long files, long long bytes, long long failed = 0) {
        RunAccount account;
        account.counts.sent = {files, bytes};
        account.counts.failed = {failed, 0};
        history_.note(task_id, account);
    }

    void close(const std::string& task_id, RunOutcome outcome) {
        history_.close(task_id, {outcome, "", 110});
    }

    static RunTotal total(std::array<long long, 4> runs, long long files, long long bytes,
                          long long failed = 0) {
        return {.runs = runs, .sent = {files, bytes}, .files_failed = failed};
    }

    RunHistory history_{memory_.runs};
};

TEST_F(RunTotalsTest, GrowWhileARunGoesOnAndKeepWhatItCameTo) {
    RunTotals totals(memory_.runs);
    EXPECT_TRUE(totals.look().empty());
    open("1");
    EXPECT_EQ(totals.look()[1], total({0, 0, 0, 0}, 0, 0));
    note("1", 2, 500);
    EXPECT_EQ(totals.look()[1], total({0, 0, 0, 0}, 2, 500));
    EXPECT_EQ(totals.look()[1], total({0, 0, 0, 0}, 2, 500));
    note("1", 3, 700, 4);
    close("1", RunOutcome::failed);
    EXPECT_EQ(totals.look()[1], total({0, 1, 0, 0}, 3, 700, 4));
    open("1");
    note("1", 1, 10);
    EXPECT_EQ(totals.look()[1], total({0, 1, 0, 0}, 4, 710, 4));
}

TEST_F(RunTotalsTest, CountRunsThatNobodyHasLookedAtInBetween) {
    RunTotals totals(memory_.runs);
    for (const RunOutcome outcome : {RunOutcome::success, RunOutcome::cancelled,
                                     RunOutcome::success, RunOutcome::interrupted}) {
        open("7");
        note("7", 1, 100);
        close("7", outcome);
    }
    open("8");
    const auto all = totals.look();
    EXPECT_EQ(all.at(7), total({2, 0, 1, 1}, 4, 400));
    EXPECT_EQ(all.at(8), total({0, 0, 0, 0}, 0, 0));
}

TEST_F(RunTotalsTest, BeginAtNothing) {
    open("1");
    note("1", 5, 5000, 1);
    close("1", RunOutcome::success);
    RunTotals totals(memory_.runs);
    EXPECT_EQ(totals.look()[1], total({0, 0, 0, 0}, 0, 0));
    open("1");
    note("1", 1, 10);
    close("1", RunOutcome::success);
    EXPECT_EQ(totals.look()[1], total({1, 0, 0, 0}, 1, 10));
}

TEST_F(RunTotalsTest, CountTheEndOfARunThatWasCutOffAndNotWhatItHadSent) {
    open("1");
    note("1", 5, 5000, 1);
    RunTotals totals(memory_.runs);
    close("1", RunOutcome::interrupted);
    EXPECT_EQ(totals.look()[1], total({0, 0, 0, 1}, 0, 0));
}

TEST_F(RunTotalsTest, HearOfFiguresThatAreWrittenAfterTheEnd) {
    RunTotals totals(memory_.runs);
    open("1");
    close("1", RunOutcome::success);
    EXPECT_EQ(totals.look()[1], total({1, 0, 0, 0}, 0, 0));
    note("1", 2, 20);
    EXPECT_EQ(totals.look()[1], total({1, 0, 0, 0}, 2, 20));
}

TEST_F(RunTotalsTest, StayWhenOldRowsGo) {
    RunTotals totals(memory_.runs);
    for (int times = 0; times < 3; ++times) {
        open("1");
        note("1", 1, 10);
        close("1", RunOutcome::success);
    }
    totals.look();
    memory_.schedules.run("DELETE FROM run WHERE number < 3");
    EXPECT_EQ(totals.look()[1], total({3, 0, 0, 0}, 3, 30));
}

TEST_F(RunTotalsTest, CountNoRunThatHasNotBegun) {
    RunTotals totals(memory_.runs);
    open("1");
    totals.look();
    history_.withdraw("1");
    EXPECT_EQ(totals.look()[1], total({0, 0, 0, 0}, 0, 0));
    open("1");
    close("1", RunOutcome::success);
    EXPECT_EQ(totals.look()[1], total({1, 0, 0, 0}, 0, 0));
}

}  // namespace
