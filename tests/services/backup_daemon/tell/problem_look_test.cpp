// Which problems there are, by what is stored.
#include "services/backup_daemon/tell/problem_look.h"

#include <sqlite3.h>

#include <limits>
#include <set>

#include "tests/services/backup_daemon/tell/alert_fixture.h"

namespace {

using namespace services;

using Words = std::set<std::string>;

class ProblemLookTest : public AlertTest {
protected:
    /// "1 failed since 5, run 7: why", "2 overdue since 6", and so on, of those that are there.
    Words look(const std::set<std::string>& full = {}) {
        const char* const kinds[] = {" failed", " overdue", " full", " differ"};
        Words words;
        for (const Problem& problem :
             look_for_problems(store.list(), share_of, memory.schedules, full, now)) {
            if (!problem.is_there) continue;
            words.insert(problem.key.subject + kinds[static_cast<int>(problem.key.kind)] +
                         " since " + std::to_string(problem.since) +
                         (problem.run > 0 ? ", run " + std::to_string(problem.run) : "") +
                         (problem.detail.empty() ? "" : ": " + problem.detail));
        }
        return words;
    }
};

TEST_F(ProblemLookTest, NewTasksHaveNone) {
    EXPECT_EQ(look(), Words());
}

TEST_F(ProblemLookTest, FailureIsTheNewestWholeRunsSinceTheFirstOfTheRow) {
    run("1", Outcome::failed, "the first");
    run("1", Outcome::success);
    now += 10;
    run("1", Outcome::failed, "the second");
    now += 10;
    run("1", Outcome::cancelled);
    run("1", Outcome::failed, "the third");
    now += 10;
    const std::string failed = "1 failed since 1000010, run 5: the third";
    EXPECT_EQ(look(), Words{failed});
    run("1", Outcome::cancelled);
    EXPECT_EQ(look(), Words{failed}) << "one that was cancelled says nothing";
    set("1", {{"status", std::to_string(TASK_RUNNING)}});
    EXPECT_EQ(look(), Words{failed}) << "nor does one that runs";
    run("1", Outcome::success);
    EXPECT_EQ(look(), Words());
}

TEST_F(ProblemLookTest, TasksOwnStatusCountsBeforeItsRowIsClosed) {
    run("1", Outcome::success);
    RunHistory history(memory.runs);
    history.open("1", "Door", standalone::RunCause::hand, now);
    now += 10;
    set_status("1", Outcome::failed);
    EXPECT_EQ(look(), Words{"1 failed since 1000010"});
    history.close("1", {Outcome::failed, "why", now});
    EXPECT_EQ(look(), Words{"1 failed since 1000010, run 2: why"});
    history.open("1", "Door", standalone::RunCause::hand, now);
    set_status("1", Outcome::success);
    EXPECT_EQ(look(), Words());
}

TEST_F(ProblemLookTest, RunBehindTheEndThatTheTaskKnowsOfCountsMore) {
    run("1", Outcome::success);
    RunHistory history(memory.runs);
    history.open("1", "Door", standalone::RunCause::hand, now + 10);
    history.close("1", {Outcome::failed, "why", now + 20});
    EXPECT_EQ(look(), Words{"1 failed since 1000020, run 2: why"});
}

TEST_F(ProblemLookTest, RunOfATaskThatHadTheIdentifierCountsForNothing) {
    run("1", Outcome::failed, "why");
    set("1", {{"status", std::to_string(TASK_NEW)}});
    memory.runs.run("UPDATE task_health SET first_run = 2");
    EXPECT_EQ(look(), Words());
}

TEST_F(ProblemLookTest, TaskIsOverdueFromItsMomentOn) {
    be_due("1", now + 1);
    be_due("2", now);
    EXPECT_EQ(look(), Words{"2 overdue since 1000000"});
}

TEST_F(ProblemLookTest, DisabledTasksHaveNone) {
    run("1", Outcome::failed, "why");
    be_due("1", now);
    find_spoilt("1", "Door/1.mp4");
    tell_room("nas", 0, 100);
    EXPECT_EQ(look().size(), 4U);
    for (const char* task_id : {"1", "2"}) set(task_id, {{"enable", "false"}});
    EXPECT_EQ(look(), Words());
}

TEST_F(ProblemLookTest, ShareIsNearlyFullBelowFivePercentUntilItHasSix) {
    const auto free = [&](long long bytes, bool was_full) {
        tell_room("nas", bytes, 1000);
        return look(was_full ? std::set<std::string>{"nas"} : std::set<std::string>{}).size();
    };
    EXPECT_EQ(free(50, false), 0U);
    EXPECT_EQ(free(49, false), 1U);
    EXPECT_EQ(free(50, true), 1U);
    EXPECT_EQ(free(59, true), 1U);
    EXPECT_EQ(free(60, true), 0U);
    EXPECT_EQ(look(), Words());
    tell_room("nas", 49, 1000);
    EXPECT_EQ(look(), Words{"nas full since 1000000: 49 of 1000 bytes are free"});
}

TEST_F(ProblemLookTest, ShareOfAnySizeIsReckonedRight) {
    const long long largest = std::numeric_limits<long long>::max();
    tell_room("nas", largest / 25, largest);
    EXPECT_EQ(look().size(), 1U);
    tell_room("nas", largest / 15, largest);
    EXPECT_EQ(look().size(), 0U);
    tell_room("nas", 0, 0);
    EXPECT_EQ(look().size(), 0U) << "it tells nothing";
}

TEST_F(ProblemLookTest, ShareHasAllItsTasksAndOneOfNoTaskIsNoProblem) {
    tell_room("nas", 0, 100);
    tell_room("another", 0, 100);
    add_task("Hall");
    set("3", {{"serverIP", "other"}});
    std::vector<std::string> names;
    for (const Problem& problem :
         look_for_problems(store.list(), share_of, memory.schedules, {}, now))
        if (problem.key.kind == ProblemKind::share_nearly_full)
            for (const ConcernedTask& task : problem.tasks) names.push_back(task.name);
    EXPECT_EQ(names, (std::vector<std::string>{"Door", "Yard"}));
}

TEST_F(ProblemLookTest, CopiesDifferUntilALaterRunSucceeds) {
    RunHistory history(memory.runs);
    history.open("1", "Door", standalone::RunCause::hand, now);
    find_spoilt("1", "Door/a.mp4");
    find_spoilt("1", "Door/b.mp4");
    set_status("1", Outcome::success);
    const auto is_there = [&] {
        const Words words = look();
        return words.size() == 1 && words.begin()->ends_with(
                                        ": 2 of them, the last one: "
                                        "Door/b.mp4");
    };
    EXPECT_TRUE(is_there()) << "while the run goes on";
    history.close("1", {Outcome::success, "", now});
    EXPECT_TRUE(is_there()) << "it has made them anew, which the next sample shows";
    run("1", Outcome::interrupted);
    EXPECT_TRUE(is_there());
    run("1", Outcome::success);
    EXPECT_EQ(look(), Words());
}

/// Notes each statement that a connection is given.
int note_statement(unsigned, void* statements, void*, void* sql) {
    static_cast<Words*>(statements)->insert(static_cast<const char*>(sql));
    return 0;
}

TEST_F(ProblemLookTest, RunsAndCopiesAreLookedUpAndNeverGoneThrough) {
    for (int count = 0; count < 3; ++count) run("1", Outcome::failed, "why");
    run("2", Outcome::failed, "why");
    run("2", Outcome::cancelled);
    find_spoilt("1", "Door/a.mp4");
    tell_room("nas", 0, 100);
    Words statements;
    sqlite3_trace_v2(memory.schedules.handle(), SQLITE_TRACE_STMT, note_statement, &statements);
    EXPECT_EQ(look().size(), 4U);
    sqlite3_trace_v2(memory.schedules.handle(), 0, nullptr, nullptr);
    EXPECT_GE(statements.size(), 5U);
    for (const std::string& sql : statements) {
        auto step = memory.schedules.prepare("EXPLAIN QUERY PLAN " + sql);
        while (step.step())
            for (const char* table : {"run", "run_failure", "copied_file"})
                EXPECT_FALSE((step.text(3) + ' ').starts_with(std::string("SCAN ") + table + ' '))
                    << sql;
    }
}

}  // namespace
