// How a run fares with its lanes: when it opens, drops and replaces them, waits, and gives up.
#include <gtest/gtest.h>

#include "tests/services/backup_daemon/run/run_scene.h"
#include "tests/services/backup_daemon/run/sample_goal.h"

using namespace services;
using namespace std::chrono_literals;

namespace {

using Texts = std::vector<std::string>;
using Ends = std::vector<std::pair<RunOutcome, std::string>>;
using Lanes = std::vector<LaneId>;

class BackupRunLanesTest : public testing::Test {
protected:
    explicit BackupRunLanesTest(int lanes = 3) : scene(goal_with(lanes)) {
        for (const char* name : {"08-00-00.mp4", "09-00-00.mp4", "10-00-00.mp4", "11-00-00.mp4"})
            scene.world.record("/rec/door", "2024-03-04", name, 5000);
        scene.begin();
        scene.clock.advance(0s);
    }

    static RunGoal goal_with(int lanes) {
        RunGoal goal = sample_goal();
        goal.lanes = lanes;
        return goal;
    }

    const CopyJob* copy_of(LaneId lane) const {
        const Order* order = scene.lanes.is_open(lane) ? scene.lanes.order(lane) : nullptr;
        return order ? std::get_if<CopyJob>(order) : nullptr;
    }

    /// Goes on until so many lanes have a file each.
    void play_until_copying(std::size_t lanes) {
        const auto copying = [&] {
            const auto open = scene.lanes.open();
            return std::ranges::count_if(open, [&](LaneId lane) { return copy_of(lane); });
        };
        while (copying() < static_cast<std::ptrdiff_t>(lanes)) {
            for (const LaneId lane : scene.lanes.open())
                if (!copy_of(lane)) scene.play_lane(lane);
        }
    }

    std::string message() const { return scene.figures().message; }
    std::size_t losses_told() const { return scene.told(CONNECTION_LOST).size(); }

    RunScene scene;
};

TEST_F(BackupRunLanesTest, FirstLaneConnectsAlone) {
    EXPECT_EQ(scene.lanes.open(), Lanes{1});
    scene.seconds(5);
    EXPECT_EQ(scene.lanes.open(), Lanes{1});
    EXPECT_TRUE(scene.lanes.given().empty());
    EXPECT_EQ(scene.connected, 0);
}

TEST_F(BackupRunLanesTest, FurtherLanesConnectAsOrdersWaitForThemUpToTheLimit) {
    scene.lanes.report(1, Ready());
    EXPECT_EQ(scene.connected, 1);
    EXPECT_TRUE(scene.lanes.order(1));
    EXPECT_EQ(scene.lanes.open(), Lanes{1}) << "nothing else before it is known where copies go";
    scene.play_lane(1);
    EXPECT_TRUE(scene.lanes.order(1));
    EXPECT_EQ(scene.lanes.open(), (Lanes{1, 2}));
    scene.second();
    EXPECT_EQ(scene.lanes.open(), (Lanes{1, 2}));
    scene.lanes.report(2, Ready());
    EXPECT_TRUE(scene.lanes.order(2));
    // There are two channels to ask, and both are asked: nobody needs a third lane.
    EXPECT_EQ(scene.lanes.open(), (Lanes{1, 2}));
    play_until_copying(3);
    EXPECT_EQ(scene.lanes.open(), (Lanes{1, 2, 3}));
    scene.second();
    EXPECT_EQ(scene.lanes.open(), (Lanes{1, 2, 3}));
    EXPECT_EQ(scene.connected, 1);
}

/// Lanes of a run that is at its files, when each of them tells this of the line.
std::size_t lanes_over(std::chrono::milliseconds round_trip, long long size) {
    RunGoal goal = sample_goal();
    goal.lanes = 3;
    goal.lanes_far = 8;
    RunScene scene(goal);
    for (int file = 10; file < 30; ++file)
        scene.world.record("/rec/door", "2024-03-04", "08-00-" + std::to_string(file) + ".mp4",
                           size);
    scene.begin();
    scene.clock.advance(0s);
    const auto copies = [&](LaneId lane) {
        const Order* order = scene.lanes.order(lane);
        return order && std::holds_alternative<CopyJob>(*order);
    };
    for (int step = 0; step < 100; ++step) {
        for (const LaneId lane : scene.lanes.open()) {
            if (!scene.lanes.is_ready(lane))
                scene.lanes.report(lane, Ready{round_trip / 1us});
            else if (!copies(lane) && scene.lanes.order(lane))
                scene.play_lane(lane);
        }
    }
    return scene.lanes.open().size();
}

TEST(BackupRunLanes, SmallFilesOverALongLineGetMoreLanes) {
    EXPECT_EQ(lanes_over(40ms, 20'000), 8U);
    EXPECT_EQ(lanes_over(10ms, (1 << 20) - 1), 8U);
}

TEST(BackupRunLanes, LargerFilesAndShortLinesDoNot) {
    EXPECT_EQ(lanes_over(40ms, 1 << 20), 3U);
    EXPECT_EQ(lanes_over(9ms, 20'000), 3U);
    EXPECT_EQ(lanes_over(-1ms, 20'000), 3U);
}

TEST_F(BackupRunLanesTest, ConnectionIsToldOnce) {
    scene.lanes.report(1, Ready());
    scene.lanes.lose(1);
    scene.clock.advance(1s);
    scene.lanes.report(2, Ready());
    scene.play();
    EXPECT_EQ(scene.connected, 1);
    EXPECT_EQ(scene.outcome(), RunOutcome::success);
}

TEST_F(BackupRunLanesTest, ConnectionThatCouldNotBeToldIsToldWithTheNext) {
    scene.when_connected = [] { throw std::runtime_error("the store is locked"); };
    scene.lanes.report(1, Ready());
    EXPECT_EQ(scene.lanes.dropped(), Lanes{1});
    EXPECT_EQ(message(), "the store is locked");
    scene.when_connected = [] {};
    scene.play();
    EXPECT_EQ(scene.connected, 1);
    EXPECT_EQ(scene.outcome(), RunOutcome::success);
}

TEST_F(BackupRunLanesTest, RefusedLoginEndsTheRunAtOnce) {
    scene.lanes.fail(1, FailureKind::refused, "wrong password");
    scene.clock.advance(0s);
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::failed, "wrong password"}}));
    EXPECT_EQ(message(), "wrong password");
    EXPECT_EQ(scene.connected, 0);
    EXPECT_TRUE(scene.events.empty());
}

TEST_F(BackupRunLanesTest, RefusalLaterOnEndsTheRunToo) {
    play_until_copying(2);
    scene.lanes.fail(1, FailureKind::refused, "share is gone");
    scene.clock.advance(0s);
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::failed, "share is gone"}}));
}

TEST_F(BackupRunLanesTest, PausesGrowAndThePatienceEndsAfterThirtyMinutes) {
    std::vector<long long> pauses;
    std::chrono::milliseconds passed{};
    for (LaneId lane = 1; !scene.has_ended(); ++lane) {
        ASSERT_EQ(scene.lanes.open(), Lanes{lane});
        scene.lanes.fail(lane, FailureKind::lost, "no route to host");
        const auto pause = scene.clock.next_alarm();
        ASSERT_TRUE(pause);
        pauses.push_back(*pause / 1s);
        if (*pause > 0s) {
            EXPECT_EQ(message(), "no route to host");
            scene.clock.advance(*pause - 1ms);
            EXPECT_TRUE(scene.lanes.open().empty());
            scene.clock.advance(1ms);
            passed += *pause;
        } else {
            scene.clock.advance(0s);
        }
    }
    ASSERT_GT(pauses.size(), 10U);
    EXPECT_EQ(std::vector<long long>(pauses.begin(), pauses.begin() + 8),
              (std::vector<long long>{1, 2, 4, 8, 16, 32, 60, 60}));
    EXPECT_GE(passed, 30min);
    EXPECT_LT(passed, 31min);
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::failed, "no route to host"}}));
    EXPECT_EQ(scene.told(CONNECTION_LOST), Texts{"no route to host"});
}

TEST_F(BackupRunLanesTest, ProgressBringsShortPausesAndPatienceBack) {
    for (LaneId lane = 1; lane <= 30; ++lane) {
        scene.lanes.fail(lane, FailureKind::lost, "no route to host");
        scene.clock.advance(*scene.clock.next_alarm());
    }
    EXPECT_FALSE(scene.has_ended());
    play_until_copying(1);
    const LaneId lane = scene.lanes.open().front();
    ASSERT_TRUE(copy_of(lane));
    scene.lanes.report(lane, At{0, true});
    scene.lanes.report(lane, At{1});
    while (!scene.lanes.open().empty()) scene.lanes.lose(scene.lanes.open().back());
    EXPECT_EQ(scene.clock.next_alarm(), 1s);
    scene.clock.advance(1s);
    for (int minute = 0; minute < 29; ++minute) {
        scene.lanes.fail(scene.lanes.open().at(0), FailureKind::lost, "no route to host");
        scene.clock.advance(*scene.clock.next_alarm());
    }
    EXPECT_FALSE(scene.has_ended());
}

TEST_F(BackupRunLanesTest, SameBytesSentAgainAndAgainAreNoProgress) {
    int rounds = 0;
    while (!scene.has_ended() && ++rounds < 1000) {
        play_until_copying(1);
        for (const LaneId lane : scene.lanes.open()) {
            if (copy_of(lane)) {
                scene.lanes.report(lane, At{0, true});
                scene.lanes.report(lane, At{4000});
            }
            scene.lanes.fail(lane, FailureKind::lost, "the connection broke");
        }
        scene.clock.advance(*scene.clock.next_alarm());
    }
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::failed, "the connection broke"}}));
}

TEST_F(BackupRunLanesTest, AfterALossOneLaneTriesAloneWhileTheOthersGoOn) {
    play_until_copying(3);
    scene.lanes.lose(2, "the server went away");
    EXPECT_EQ(scene.lanes.open(), (Lanes{1, 3}));
    EXPECT_EQ(message(), "the server went away");
    scene.lanes.report(1, Copied{{5000, 1, ""}});
    EXPECT_TRUE(copy_of(1)) << "the file that lane 2 had";
    scene.clock.advance(1s);
    // Two lanes still work, so no third one probes.
    EXPECT_EQ(scene.lanes.open(), (Lanes{1, 3}));
    scene.lanes.lose(1);
    scene.lanes.lose(3);
    EXPECT_TRUE(scene.lanes.open().empty());
    scene.clock.advance(60s);
    EXPECT_EQ(scene.lanes.open(), Lanes{4});
    scene.lanes.report(4, Ready());
    EXPECT_EQ(message(), "");
    EXPECT_EQ(scene.lanes.open(), (Lanes{4, 5, 6})) << "side by side, once one connection stands";
}

TEST_F(BackupRunLanesTest, ProgressOfOtherLanesDoesNotHideALoss) {
    play_until_copying(2);
    scene.lanes.report(1, At{0, true});
    scene.lanes.lose(2, "the server went away");
    scene.lanes.report(1, At{100});
    EXPECT_EQ(message(), "the server went away");
}

TEST_F(BackupRunLanesTest, LossesOfOneMomentMakeOnePause) {
    play_until_copying(3);
    for (const LaneId lane : {1, 2, 3}) scene.lanes.lose(lane, "lane " + std::to_string(lane));
    EXPECT_EQ(scene.clock.next_alarm(), 1s);
    EXPECT_EQ(scene.told(CONNECTION_LOST), Texts{"lane 1"});
    scene.clock.advance(1s);
    EXPECT_EQ(scene.lanes.open(), Lanes{4});
    scene.lanes.lose(4);
    EXPECT_EQ(scene.clock.next_alarm(), 2s);
}

TEST_F(BackupRunLanesTest, OpenLanesAndRetriesAreCounted) {
    EXPECT_EQ(scene.run->lanes(), 1U);
    scene.lanes.report(1, Ready());
    scene.play_lane(1);
    EXPECT_EQ(scene.run->lanes(), 2U);
    EXPECT_EQ(scene.run->retries(), 0);
    scene.lanes.lose(1);
    scene.lanes.lose(2);
    EXPECT_EQ(scene.run->lanes(), 0U);
    EXPECT_EQ(scene.run->retries(), 1) << "one pause, one attempt";
    scene.clock.advance(1s);
    EXPECT_EQ(scene.run->lanes(), 1U);
    scene.lanes.lose(3);
    EXPECT_EQ(scene.run->retries(), 2);
}

TEST_F(BackupRunLanesTest, NoLaneIsOpenedInAPause) {
    scene.lanes.fail(1, FailureKind::lost);
    scene.run->look_after();
    EXPECT_TRUE(scene.lanes.open().empty());
    EXPECT_EQ(scene.lanes.opened(), 1);
}

TEST_F(BackupRunLanesTest, LossIsToldOncePerReasonAndConnection) {
    const auto lose = [&](const std::string& why) {
        scene.lanes.lose(scene.lanes.open().at(0), why);
        scene.clock.advance(*scene.clock.next_alarm());
    };
    lose("one");
    lose("one");
    lose("two");
    lose("one");
    EXPECT_EQ(scene.told(CONNECTION_LOST), (Texts{"one", "two", "one"}));
    scene.lanes.report(scene.lanes.open().at(0), Ready());
    scene.play_lane(scene.lanes.open().at(0));
    while (scene.lanes.open().size() > 1) scene.lanes.lose(scene.lanes.open().back(), "one");
    EXPECT_EQ(losses_told(), 4U);
}

TEST_F(BackupRunLanesTest, TenLossesAtMostAreTold) {
    for (int loss = 0; loss < 15; ++loss) {
        scene.lanes.lose(scene.lanes.open().at(0), "loss " + std::to_string(loss));
        EXPECT_EQ(message(), "loss " + std::to_string(loss));
        EXPECT_EQ(losses_told(), static_cast<std::size_t>(std::min(loss + 1, 10)));
        scene.clock.advance(*scene.clock.next_alarm());
    }
}

TEST_F(BackupRunLanesTest, NinetySecondsOfSilenceDropExactlyTheSilentLane) {
    play_until_copying(3);
    scene.seconds(45);
    scene.lanes.report(1, At{0, true});
    scene.lanes.report(3, At{0, true});
    scene.seconds(44);
    EXPECT_EQ(scene.lanes.open(), (Lanes{1, 2, 3}));
    scene.second();
    EXPECT_EQ(scene.lanes.dropped(), Lanes{2});
    EXPECT_EQ(scene.told(CONNECTION_LOST), Texts{"the server does not answer"});
    EXPECT_EQ(message(), "the server does not answer");
}

TEST_F(BackupRunLanesTest, AllSilentLanesAreDroppedAtOnce) {
    play_until_copying(3);
    scene.seconds(90);
    EXPECT_EQ(scene.lanes.dropped(), (Lanes{1, 2, 3}));
    EXPECT_EQ(losses_told(), 1U);
    scene.play();
    EXPECT_EQ(scene.outcome(), RunOutcome::success);
}

TEST_F(BackupRunLanesTest, FileOfASilentLaneGoesToAnIdleOneAtOnce) {
    play_until_copying(3);
    for (const LaneId lane : {1, 2}) scene.lanes.report(lane, Copied{{5000, 1, ""}});
    ASSERT_FALSE(scene.lanes.order(2));
    scene.seconds(60);
    scene.lanes.report(1, At{0, true});
    scene.seconds(30);
    EXPECT_EQ(scene.lanes.dropped(), Lanes{3});
    EXPECT_TRUE(copy_of(2));
}

TEST_F(BackupRunLanesTest, LaneThatNeverConnectsIsDropped) {
    scene.seconds(89);
    EXPECT_EQ(scene.lanes.open(), Lanes{1});
    scene.second();
    EXPECT_EQ(scene.lanes.dropped(), Lanes{1});
    scene.second();
    EXPECT_EQ(scene.lanes.open(), Lanes{2});
}

TEST_F(BackupRunLanesTest, LaneWithoutAnOrderMayBeSilent) {
    play_until_copying(3);
    for (const LaneId lane : {1, 2}) scene.lanes.report(lane, Copied{{5000, 1, ""}});
    ASSERT_TRUE(copy_of(1));
    ASSERT_FALSE(scene.lanes.order(2));
    for (int time = 0; time < 4; ++time) {
        scene.seconds(60);
        for (const LaneId lane : {1, 3}) scene.lanes.report(lane, At{time});
    }
    EXPECT_TRUE(scene.lanes.dropped().empty());
}

TEST_F(BackupRunLanesTest, SilenceCountsFromTheOrderOn) {
    play_until_copying(3);
    for (const LaneId lane : {1, 2}) scene.lanes.report(lane, Copied{{5000, 1, ""}});
    for (int time = 0; time < 2; ++time) {
        scene.seconds(60);
        for (const LaneId lane : {1, 3}) scene.lanes.report(lane, At{time});
    }
    scene.lanes.lose(3);
    ASSERT_TRUE(copy_of(2)) << "lane 2 gets the file of the lost one";
    scene.seconds(89);
    EXPECT_TRUE(scene.lanes.is_open(2));
    scene.second();
    EXPECT_FALSE(scene.lanes.is_open(2));
}

TEST_F(BackupRunLanesTest, LaneThatSaysWhatNobodyAskedForIsReplaced) {
    play_until_copying(1);
    scene.lanes.report(1, Done());
    EXPECT_EQ(scene.lanes.dropped(), Lanes{1});
    EXPECT_EQ(message(), "the copying process said what nobody had asked for");
    scene.play();
    EXPECT_EQ(scene.outcome(), RunOutcome::success);
}

TEST_F(BackupRunLanesTest, LaneThatConnectsTwiceIsReplaced) {
    scene.lanes.report(1, Ready());
    scene.lanes.report(1, Ready());
    EXPECT_EQ(scene.lanes.dropped(), Lanes{1});
    EXPECT_EQ(scene.connected, 1);
}

TEST_F(BackupRunLanesTest, LaneThatReportsBeforeItConnectsIsReplaced) {
    scene.lanes.report(1, Days{});
    EXPECT_EQ(scene.lanes.dropped(), Lanes{1});
}

TEST_F(BackupRunLanesTest, LaneOfAThirdFailedAttemptIsReplacedWithoutAPause) {
    play_until_copying(1);
    for (int attempt = 1; attempt <= 3; ++attempt) {
        play_until_copying(1);
        const LaneId lane = scene.lanes.open().front();
        const std::string source = copy_of(lane)->source;
        EXPECT_EQ(source, "2024-03-04/08-00-00.mp4");
        while (scene.lanes.open().size() > 1) scene.lanes.lose(scene.lanes.open().back());
        scene.clock.advance(60s);
        scene.lanes.fail(lane, FailureKind::other, "input/output error");
        EXPECT_FALSE(scene.lanes.is_open(lane));
        if (attempt < 3) scene.clock.advance(60s);
    }
    EXPECT_FALSE(scene.clock.next_alarm());
    EXPECT_EQ(scene.lanes.open().size(), 1U);
    EXPECT_EQ(scene.told(FILE_NOT_COPIED), Texts{"input/output error"});
}

TEST_F(BackupRunLanesTest, FileThatEndsThreeProcessesIsGivenUpAndTheOthersAreCopied) {
    constexpr char POISON[] = "2024-03-04/08-00-00.mp4";
    int ended = 0;
    for (int steps = 0; !scene.has_ended(); ++steps) {
        ASSERT_LT(steps, 1000) << "the run does not end";
        const auto open = scene.lanes.open();
        const auto poisoned = std::ranges::find_if(
            open, [&](LaneId lane) { return copy_of(lane) && copy_of(lane)->source == POISON; });
        if (poisoned != open.end()) {
            scene.lanes.lose(*poisoned);
            ++ended;
        } else {
            scene.step();
        }
    }
    EXPECT_EQ(ended, 3);
    EXPECT_EQ(scene.outcome(), RunOutcome::failed);
    EXPECT_EQ(scene.told(FILE_NOT_COPIED),
              Texts{"Door/2024-03-04/08-00-00.mp4: the copying process ended"});
    EXPECT_EQ(scene.figures().files_failed, 1);
    EXPECT_GT(scene.figures().files_done, 0);
    EXPECT_EQ(scene.figures().files_left, 0);
}

TEST_F(BackupRunLanesTest, RunWaitsWhenNoLaneIsToBeHad) {
    scene.lanes.none_to_be_had = "too many processes";
    scene.lanes.lose(1, "it ended");
    scene.clock.advance(1s);
    EXPECT_EQ(message(), "too many processes");
    EXPECT_EQ(scene.clock.next_alarm(), 2s);
    scene.lanes.none_to_be_had.reset();
    scene.play();
    EXPECT_EQ(scene.outcome(), RunOutcome::success);
}

TEST_F(BackupRunLanesTest, LaneThatIsNotToBeHadIsALossToo) {
    scene.lanes.none_to_be_had = "too many processes";
    scene.lanes.report(1, Ready());
    scene.play_lane(1);
    EXPECT_EQ(message(), "too many processes");
    EXPECT_EQ(scene.told(CONNECTION_LOST), Texts{"too many processes"});
    scene.lanes.none_to_be_had.reset();
    play_until_copying(1);
    scene.lanes.report(1, At{0, true});
    scene.lanes.report(1, At{100});
    EXPECT_EQ(message(), "too many processes");
    scene.clock.advance(60s);
    EXPECT_EQ(scene.lanes.open(), Lanes{1}) << "as long as one works, none probes";
}

TEST_F(BackupRunLanesTest, EndInAPauseLeavesNoAlarmBehind) {
    scene.lanes.lose(1);
    EXPECT_EQ(scene.clock.next_alarm(), 1s);
    scene.run->cancel();
    scene.clock.advance(0s);
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::cancelled, ""}}));
    EXPECT_FALSE(scene.clock.next_alarm());
}

TEST_F(BackupRunLanesTest, RunWithoutLanesGivesUpAfterThirtyMinutes) {
    scene.lanes.none_to_be_had = "too many processes";
    scene.lanes.lose(1, "it ended");
    scene.seconds(31 * 60);
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::failed, "too many processes"}}));
}

TEST_F(BackupRunLanesTest, SpeedIsReadEverySecond) {
    play_until_copying(1);
    scene.lanes.report(1, At{0, true});
    scene.second();
    EXPECT_EQ(scene.figures().rate, 0);
    scene.lanes.report(1, At{600});
    scene.second();
    EXPECT_EQ(scene.figures().rate, 300);
}

}  // namespace
