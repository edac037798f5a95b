// A run whose memory fails: at every single call, for a while, and for good.
#include <gtest/gtest.h>

#include "tests/services/backup_daemon/run/run_checker.h"
#include "tests/services/backup_daemon/run/sample_goal.h"

using namespace services;
using namespace std::chrono_literals;

namespace {

constexpr const char* TROUBLE =
    "the recorder's own database cannot be written: the memory does not answer";

/// A run that asks its memory for everything: copies, room, retention, left-over files.
class BackupRunMemoryTest : public testing::Test {
protected:
    std::unique_ptr<RunScene> make_scene() {
        RunGoal goal = sample_goal();
        goal.when_full = WhenFull::remove_oldest;
        goal.first_kept_day = "2024-02-20";
        goal.side_files = true;
        goal.lanes = 2;
        auto scene = std::make_unique<RunScene>(goal);
        RecordingWorld& world = scene->world;
        world.record("/rec/door", "2024-03-04", "08-00-00.mp4", 2500);
        world.record("/rec/door", "2024-03-05", "alarm/08-00-00.mp4", 500);
        world.record("/rec/yard", "2024-03-05", "09-00-00.mp4", 1000);
        for (const char* day : {"2024-01-01", "2024-02-01", "2024-02-02"}) {
            const std::string path = std::string("Door/") + day + "/1.mp4";
            scene->ledger.add(path, day);
            world.share["store/" + path] = 100;
        }
        scene->ledger.checkpoints["Door/x"] = {"Door/x", "Door/.x.7.part", 10, "abc"};
        // One old copy has to make room, the other two are too old.
        world.room = 4250;
        return scene;
    }

    /// Calls of the memory in a run without failures.
    int calls() {
        const auto scene = make_scene();
        scene->begin();
        scene->play();
        EXPECT_EQ(scene->outcome(), RunOutcome::success);
        EXPECT_EQ(scene->told(ROOM_MADE).size(), 1U);
        return scene->ledger.calls;
    }

    /// Orders that a run without failures gives.
    std::size_t calm_orders() {
        const auto scene = make_scene();
        scene->begin();
        scene->play();
        return scene->lanes.given().size();
    }

    /// Plays a run until its first lane has a file to copy.
    static CopyJob wait_for_copy(RunScene& scene) {
        for (;;) {
            if (scene.lanes.opened() > 0 && scene.lanes.order(1))
                if (const auto* job = std::get_if<CopyJob>(scene.lanes.order(1))) return *job;
            if (!scene.step()) throw std::logic_error("the run ends before");
        }
    }

    /// Plays a run to its end, every step of it checked.
    void play(RunScene& scene) {
        RunChecker checker(scene);
        scene.begin();
        for (int steps = 0; !scene.has_ended(); ++steps) {
            ASSERT_LT(steps, 10'000) << "the run does not end";
            ASSERT_TRUE(scene.step()) << "the run waits for nothing";
            checker.check();
            if (HasFailure()) return;
        }
        checker.check_end(wanted);
    }

    const std::set<std::string> wanted{"Door/2024-03-04/08-00-00.mp4",
                                       "Door/2024-03-05/alarm/08-00-00.mp4",
                                       "Yard/2024-03-05/09-00-00.mp4"};
};

TEST_F(BackupRunMemoryTest, FailureOfAnySingleCallCostsNoLaneAndNoOrder) {
    const int all = calls();
    ASSERT_GT(all, 20);
    const auto orders = calm_orders();
    for (int failing = 1; failing <= all; ++failing) {
        SCOPED_TRACE("call " + std::to_string(failing));
        const auto scene = make_scene();
        scene->ledger.refuses = [=](int call) { return call == failing; };
        play(*scene);
        ASSERT_FALSE(HasFailure());
        EXPECT_EQ(scene->outcome(), RunOutcome::success);
        EXPECT_EQ(scene->ledger.recorded.size(), 3U);
        EXPECT_EQ(scene->told(ROOM_MADE).size(), 1U);
        EXPECT_EQ(scene->told(RETENTION_PASS).size(), 1U);
        EXPECT_TRUE(scene->told(CONNECTION_LOST).empty());
        EXPECT_TRUE(scene->lanes.dropped().empty());
        EXPECT_EQ(scene->lanes.given().size(), orders);
        EXPECT_TRUE(scene->ledger.checkpoints.empty());
        EXPECT_LT(scene->clock.steady() - HandClock::STEADY_START, 3s);
    }
}

TEST_F(BackupRunMemoryTest, FailuresForAWhileCostNoLaneAndNoOrder) {
    const int all = calls();
    const auto orders = calm_orders();
    for (int first = 1; first <= all; ++first) {
        SCOPED_TRACE("calls from " + std::to_string(first));
        const auto scene = make_scene();
        scene->ledger.refuses = [=](int call) { return call >= first && call < first + 50; };
        play(*scene);
        ASSERT_FALSE(HasFailure());
        EXPECT_EQ(scene->outcome(), RunOutcome::success);
        EXPECT_TRUE(scene->lanes.dropped().empty());
        EXPECT_EQ(scene->lanes.given().size(), orders);
    }
}

TEST_F(BackupRunMemoryTest, FailureForGoodInterruptsTheRunAfterAMinute) {
    const int all = calls();
    for (int first = 1; first <= all; ++first) {
        SCOPED_TRACE("calls from " + std::to_string(first));
        const auto scene = make_scene();
        scene->ledger.refuses = [=](int call) { return call >= first; };
        play(*scene);
        ASSERT_FALSE(HasFailure());
        EXPECT_EQ(scene->outcome(), RunOutcome::interrupted);
        EXPECT_EQ(scene->why(), TROUBLE);
        const auto passed = scene->clock.steady() - HandClock::STEADY_START;
        EXPECT_GE(passed, 60s);
        EXPECT_LT(passed, 63s);
    }
}

TEST_F(BackupRunMemoryTest, DamageThatDoesNotPassFailsTheRunAfterAMinute) {
    const auto scene = make_scene();
    scene->ledger.refuses = [](int call) { return call >= 5; };
    scene->ledger.code = 11;  // SQLITE_CORRUPT
    play(*scene);
    EXPECT_EQ(scene->outcome(), RunOutcome::failed);
    EXPECT_EQ(scene->why(), TROUBLE);
}

/// What is refused for minutes in all, but never the same thing for one, is only slow.
TEST_F(BackupRunMemoryTest, MinuteBeginsAnewWithWhateverIsStored) {
    const auto scene = make_scene();
    scene->ledger.refuses = [](int call) { return call % 60 >= 10; };
    play(*scene);
    EXPECT_EQ(scene->outcome(), RunOutcome::success);
    EXPECT_GT(scene->clock.steady() - HandClock::STEADY_START, 100s);
}

TEST_F(BackupRunMemoryTest, RunAfterAnInterruptedOneSendsOnlyWhatIsMissing) {
    const int all = calls();
    for (int first = 1; first <= all; ++first) {
        SCOPED_TRACE("calls from " + std::to_string(first));
        const auto scene = make_scene();
        scene->ledger.refuses = [=](int call) { return call >= first; };
        play(*scene);
        ASSERT_FALSE(HasFailure());
        RunScene second(scene->goal);
        second.ledger = scene->ledger;
        second.ledger.refuses = [](int) { return false; };
        second.world = scene->world;
        second.begin();
        second.play();
        EXPECT_EQ(second.outcome(), RunOutcome::success);
        for (const std::string& path : wanted) EXPECT_TRUE(second.ledger.copies.contains(path));
        EXPECT_TRUE(second.ledger.checkpoints.empty());
    }
}

TEST_F(BackupRunMemoryTest, TroubleLeavesLanesAloneAndIsShown) {
    const auto scene = make_scene();
    scene->begin();
    scene->clock.advance(0s);
    const auto& given = scene->lanes.given();
    while (given.empty() || !std::holds_alternative<ListDay>(given.back()))
        ASSERT_TRUE(scene->step());
    scene->ledger.refuses = [](int) { return true; };
    while (scene->figures().message.empty()) ASSERT_TRUE(scene->step());
    EXPECT_EQ(scene->figures().message, TROUBLE);
    const auto lanes = scene->lanes.open();
    EXPECT_FALSE(lanes.empty());
    scene->seconds(58);
    EXPECT_EQ(scene->figures().message, TROUBLE);
    EXPECT_EQ(scene->lanes.open(), lanes);
    EXPECT_TRUE(scene->events.empty());
    scene->ledger.refuses = [](int) { return false; };
    scene->second();
    EXPECT_EQ(scene->figures().message, "");
    scene->play();
    EXPECT_EQ(scene->outcome(), RunOutcome::success);
}

TEST_F(BackupRunMemoryTest, IsAskedOnceASecondAndNoMoreHoweverMuchIsSaid) {
    const auto scene = make_scene();
    scene->begin();
    wait_for_copy(*scene);
    scene->ledger.refuses = [](int) { return true; };
    scene->lanes.report(1, Noted{1000, "hash"});
    const int calls = scene->ledger.calls;
    for (int report = 2; report < 100; ++report)
        scene->lanes.report(1, Noted{1000 + report, "hash"});
    EXPECT_EQ(scene->ledger.calls, calls);
    scene->seconds(10);
    EXPECT_EQ(scene->ledger.calls, calls + 10);
}

TEST_F(BackupRunMemoryTest, ReportsAreTakenInTheirOrderWhenTheMemoryIsBack) {
    const auto scene = make_scene();
    scene->begin();
    const CopyJob job = wait_for_copy(*scene);
    scene->ledger.refuses = [](int) { return true; };
    scene->lanes.report(1, Noted{1000, "one"});
    for (int offset = 1001; offset < 1900; ++offset) scene->lanes.report(1, At{offset});
    scene->lanes.report(1, Noted{2000, "two"});
    scene->lanes.report(1, Copied{{2500, 1, "all"}});
    EXPECT_EQ(scene->figures().bytes_done, 0);
    scene->ledger.refuses = [](int) { return false; };
    scene->second();
    const CopiedFile& copy = scene->ledger.copies.at("Door/2024-03-04/08-00-00.mp4");
    EXPECT_EQ(copy.sha256, "all");
    EXPECT_EQ(scene->figures().files_done, 1);
    EXPECT_FALSE(scene->ledger.checkpoints.contains(copy.path));
}

TEST_F(BackupRunMemoryTest, CopyOfALaneThatEndsBeforeItIsRecordedIsNotSentAgain) {
    const auto scene = make_scene();
    scene->begin();
    wait_for_copy(*scene);
    scene->ledger.refuses = [](int) { return true; };
    scene->lanes.report(1, Copied{{2500, 1, "all"}});
    scene->lanes.lose(1);
    EXPECT_TRUE(scene->events.empty()) << "told before its turn";
    scene->ledger.refuses = [](int) { return false; };
    scene->second();
    EXPECT_EQ(scene->figures().files_done, 1);
    EXPECT_EQ(scene->told(CONNECTION_LOST), std::vector<std::string>{"the copying process ended"});
}

TEST_F(BackupRunMemoryTest, ConnectionThatIsRefusedIsToldAgainUntilItIsHeard) {
    const auto scene = make_scene();
    scene->begin();
    int told = 0;
    scene->when_connected = [&] {
        if (++told < 30) throw standalone::DatabaseError("the memory does not answer", 5);
    };
    while (told == 0) ASSERT_TRUE(scene->step());
    EXPECT_EQ(scene->figures().message, TROUBLE);
    EXPECT_TRUE(scene->lanes.given().empty());
    scene->play();
    EXPECT_EQ(scene->outcome(), RunOutcome::success);
    EXPECT_EQ(told, 30);
    EXPECT_EQ(scene->connected, 1);
    EXPECT_TRUE(scene->lanes.dropped().empty());
}

TEST_F(BackupRunMemoryTest, ConnectionThatIsNeverHeardInterruptsTheRun) {
    const auto scene = make_scene();
    scene->begin();
    scene->when_connected = [] {
        throw standalone::DatabaseError("the memory does not answer", 5);
    };
    scene->play();
    EXPECT_EQ(scene->outcome(), RunOutcome::interrupted);
    EXPECT_EQ(scene->why(), TROUBLE);
    EXPECT_TRUE(scene->lanes.pool_is_gone());
}

TEST_F(BackupRunMemoryTest, SignsOfLifeDoNotHideTroubleThatLasts) {
    const auto scene = make_scene();
    for (const char* name : {"09-00-00.mp4", "10-00-00.mp4"})
        scene->world.record("/rec/door", "2024-03-04", name, 10);
    scene->begin();
    wait_for_copy(*scene);
    ASSERT_FALSE(scene->lanes.is_ready(2));
    scene->ledger.refuses = [](int) { return true; };
    scene->lanes.report(2, Ready());
    for (int second = 0; second < 62 && !scene->has_ended(); ++second) {
        scene->lanes.report(1, At{second});
        scene->second();
    }
    ASSERT_TRUE(scene->has_ended());
    EXPECT_EQ(scene->why(), TROUBLE);
}

TEST_F(BackupRunMemoryTest, RunInTroubleIsCancelledAtOnce) {
    const auto scene = make_scene();
    scene->begin();
    scene->ledger.refuses = [](int) { return true; };
    while (scene->figures().message.empty()) ASSERT_TRUE(scene->step());
    scene->run->cancel();
    EXPECT_EQ(scene->figures().message, "");
    scene->clock.advance(0s);
    EXPECT_EQ(scene->outcome(), RunOutcome::cancelled);
    EXPECT_EQ(scene->why(), "");
}

/// The message of a lost connection comes back when the trouble in between is over.
TEST_F(BackupRunMemoryTest, TroubleHidesALostConnectionOnlyForAsLongAsItLasts) {
    const auto scene = make_scene();
    scene->begin();
    wait_for_copy(*scene);
    scene->ledger.refuses = [](int) { return true; };
    scene->lanes.report(1, Noted{1000, "one"});
    scene->lanes.lose(1);
    EXPECT_EQ(scene->figures().message, TROUBLE);
    scene->ledger.refuses = [](int) { return false; };
    scene->clock.advance(1s);
    EXPECT_EQ(scene->figures().message, "the copying process ended");
}

TEST_F(BackupRunMemoryTest, TroubleIsForgottenWithTheNextProgress) {
    const int all = calls();
    int seen = 0;
    for (int failing = 1; failing <= all; ++failing) {
        SCOPED_TRACE("call " + std::to_string(failing));
        const auto scene = make_scene();
        scene->ledger.refuses = [=](int call) { return call == failing; };
        scene->begin();
        while (scene->step() && scene->ledger.calls < failing) continue;
        // Where a report was refused, its lane was dropped, and only a connection mends that.
        if (!scene->lanes.dropped().empty() || scene->figures().message.empty()) continue;
        const long long done = scene->figures().files_done;
        while (scene->figures().files_done == done && scene->step()) continue;
        if (scene->has_ended()) continue;
        ++seen;
        EXPECT_EQ(scene->figures().message, "");
    }
    EXPECT_GT(seen, 0);
}

}  // namespace
