// Making room on a full share: whose copies go, when, and what waits meanwhile.
#include "tests/services/backup_daemon/run/run_plan_fixture.h"

using namespace services;

namespace {

using Kind = FailureStep::Kind;

std::string numbered(const std::string& day, int number) {
    return "Door/" + day + "/" + std::to_string(1000 + number) + ".mp4";
}

class RunPlanRoomTest : public RunPlanTest {
protected:
    /// Three files to copy of the fifth; lanes for all of them.
    RunPlanRoomTest() {
        goal.when_full = WhenFull::remove_oldest;
        goal.lanes = 3;
        for (const char* name : {"08-00-00.mp4", "09-00-00.mp4", "10-00-00.mp4"})
            world.record("/rec/door", "2024-03-05", name, 100);
    }

    void add_day(const std::string& day, int files) {
        for (int number = 0; number < files; ++number) {
            ledger.add(numbered(day, number), day);
            world.share["store/" + numbered(day, number)] = 100;
        }
    }

    /// A lane has found the share full, as it is from now on.
    FailureStep find_full(LaneId lane = 1) {
        world.fill();
        return fail(FailureKind::full, lane, "no room");
    }

    /// A lane gets a file and finds the share full.
    FailureStep run_full(LaneId lane = 1) {
        EXPECT_NE(next_that("copy", lane), "");
        return find_full(lane);
    }

    /// A lane is asked how much room there is; gives the order that it gets then.
    std::string next_removal(LaneId lane = 1) {
        EXPECT_EQ(next(lane), "room");
        carry_out(lane);
        return next(lane);
    }

    /// A lane has made room, and is asked whether that has helped.
    void prove_room(LaneId lane = 1) {
        EXPECT_TRUE(next(lane).starts_with("room for "));
        carry_out(lane);
    }

    /// A lane is told to make room; gives how many files go.
    std::size_t remove_copies(LaneId lane = 1) {
        const std::string order = next_removal(lane);
        EXPECT_TRUE(order.starts_with("remove")) << order;
        const auto before = ledger.gone.size();
        carry_out(lane);
        return ledger.gone.size() - before;
    }

    /// The same, and that has helped.
    std::size_t make_room(LaneId lane = 1) {
        const std::size_t removed = remove_copies(lane);
        prove_room(lane);
        return removed;
    }

    /// A lane is told to remove so many unfinished files.
    void remove_unfinished(int files, LaneId lane = 1) {
        for (int file = 0; file < files; ++file) {
            EXPECT_NE(next_that("remove", lane).find("7.part"), std::string::npos);
            carry_out(lane);
        }
        EXPECT_TRUE(ledger.checkpoints.empty());
    }

    /// Nothing more is copied then, and what was begun goes.
    void expect_full(const FailureStep& step) {
        EXPECT_EQ(step.kind, Kind::go_on);
        EXPECT_EQ(plan().failure(), "the share is full: no room");
        EXPECT_EQ(notes(SHARE_FULL), Texts{"no room"});
        Texts orders = rest();
        ASSERT_FALSE(orders.empty());
        EXPECT_EQ(orders.back(), "room") << "what is left is noted";
        orders.pop_back();
        for (const std::string& order : orders)
            EXPECT_NE(order.find("-7.part"), std::string::npos) << order;
        EXPECT_TRUE(ledger.checkpoints.empty());
        EXPECT_TRUE(plan().is_over());
    }
};

TEST_F(RunPlanRoomTest, OldestDayGoesAndTheFileIsTriedAgain) {
    add_day("2024-02-02", 1);
    add_day("2024-02-01", 2);
    const std::string file = next_that("copy");
    EXPECT_EQ(find_full().kind, Kind::go_on);
    EXPECT_EQ(next_removal(),
              "remove store/Door/2024-02-01/1000.mp4=100 store/Door/2024-02-01/1001.mp4=100, "
              "folders store/Door/2024-02-01");
    carry_out();
    EXPECT_TRUE(ledger.copies.at(numbered("2024-02-01", 0)).removed);
    EXPECT_TRUE(ledger.copies.at(numbered("2024-02-01", 1)).removed);
    EXPECT_FALSE(ledger.copies.at(numbered("2024-02-02", 0)).removed);
    EXPECT_EQ(notes(ROOM_MADE), Texts{"2024-02-01, 2 files"});
    prove_room();
    EXPECT_EQ(next(), file);
    world.room += 1000;
    carry_out();
    rest();
    EXPECT_EQ(counts(), "3 done, 0 failed, 0 left; 300 of 300 bytes");
}

TEST_F(RunPlanRoomTest, CopiesThatMadeRoomAreCountedAsRemoved) {
    add_day("2024-02-01", 2);
    EXPECT_EQ(run_full().kind, Kind::go_on);
    world.share["store/" + numbered("2024-02-01", 1)] = 99;  // somebody's, and stays
    remove_copies();
    EXPECT_EQ(tally.account("").counts.removed, (standalone::FileAmount{1, 100}));
}

TEST_F(RunPlanRoomTest, NextOldestDayGoesWhenThatWasNotEnough) {
    add_day("2024-02-01", 1);
    add_day("2024-02-02", 1);
    EXPECT_EQ(run_full().kind, Kind::go_on);
    make_room();
    EXPECT_EQ(run_full().kind, Kind::go_on);
    make_room();
    EXPECT_EQ(ledger.gone, (Texts{numbered("2024-02-01", 0), numbered("2024-02-02", 0)}));
    expect_full(run_full());
}

TEST_F(RunPlanRoomTest, DayOfManyFilesGoesByTheHundred) {
    add_day("2024-02-01", 150);
    add_day("2024-02-02", 60);
    for (const std::size_t wanted : {100U, 50U, 60U}) {
        EXPECT_EQ(run_full().kind, Kind::go_on);
        EXPECT_EQ(make_room(), wanted);
    }
    EXPECT_EQ(notes(ROOM_MADE),
              (Texts{"2024-02-01, 100 files", "2024-02-01, 50 files", "2024-02-02, 60 files"}));
}

TEST_F(RunPlanRoomTest, NothingGoesWhenNothingMayBeOverwritten) {
    goal.when_full = WhenFull::fail;
    add_day("2024-02-01", 1);
    expect_full(run_full());
    EXPECT_EQ(tally.files_failed(), 0);
}

TEST_F(RunPlanRoomTest, NothingGoesWhenNothingWasCopied) {
    expect_full(run_full());
}

TEST_F(RunPlanRoomTest, NothingGoesInARunThatHasFailedAlready) {
    add_day("2024-02-01", 1);
    ASSERT_NE(next_that("copy"), "");
    fail(FailureKind::occupied, 1, "the words");
    EXPECT_EQ(run_full().kind, Kind::go_on);
    remove_unfinished(2);
    const FailureStep step = run_full();
    EXPECT_EQ(step.kind, Kind::go_on);
    EXPECT_EQ(plan().failure(),
              "the share is full: no room; before that, 1 of 3 files could not be copied; the "
              "first: the words");
    EXPECT_TRUE(ledger.gone.empty());
}

TEST_F(RunPlanRoomTest, RoomThatNobodyHasBegunToMakeIsNotMadeWhenAFileFails) {
    add_day("2024-02-01", 1);
    ASSERT_NE(next_that("copy", 1), "");
    ASSERT_NE(next_that("copy", 2), "");
    EXPECT_EQ(find_full(1).kind, Kind::go_on);
    EXPECT_EQ(fail(FailureKind::occupied, 2).kind, Kind::go_on);
    EXPECT_EQ(run_full(1).kind, Kind::go_on);
    remove_unfinished(2);
    EXPECT_EQ(run_full(1).kind, Kind::go_on);
    EXPECT_TRUE(plan().failure().starts_with("the share is full"));
    EXPECT_TRUE(ledger.gone.empty());
}

TEST_F(RunPlanRoomTest, DayAsNewAsTheFileStays) {
    add_day("2024-03-05", 1);
    expect_full(run_full());
}

TEST_F(RunPlanRoomTest, NewerDayStays) {
    add_day("2024-03-06", 1);
    expect_full(run_full());
}

TEST_F(RunPlanRoomTest, DayBeforeTheFilesOwnMayGo) {
    add_day("2024-03-04", 1);
    EXPECT_EQ(run_full().kind, Kind::go_on);
    EXPECT_EQ(make_room(), 1U);
}

TEST_F(RunPlanRoomTest, CopiesOfOtherTasksStay) {
    add_day("2024-02-01", 1);
    add_day("2024-02-02", 1);
    ledger.foreign = {numbered("2024-02-01", 0)};
    EXPECT_EQ(run_full().kind, Kind::go_on);
    make_room();
    EXPECT_EQ(ledger.gone, Texts{numbered("2024-02-02", 0)});
}

TEST_F(RunPlanRoomTest, NothingElseIsGivenWhileRoomIsMade) {
    add_day("2024-02-01", 1);
    world.record("/rec/door", "2024-03-06", "08-00-00.mp4", 100);
    ASSERT_EQ(run_full(1).kind, Kind::go_on);
    EXPECT_TRUE(next_removal(1).starts_with("remove"));
    EXPECT_EQ(next(2), "");
    EXPECT_GT(plan().waiting_orders(), 0);
    carry_out(1);
    EXPECT_EQ(next(2), "room for 50") << "half of what was removed";
    EXPECT_EQ(next(1), "");
    carry_out(2);
    EXPECT_TRUE(next(2).starts_with("copy"));
}

TEST_F(RunPlanRoomTest, OrderToMakeRoomOutlivesItsLane) {
    add_day("2024-02-01", 1);
    ASSERT_EQ(run_full(1).kind, Kind::go_on);
    const std::string order = next_removal(1);
    plan().lose(1);
    EXPECT_EQ(next(2), order);
    EXPECT_EQ(next(3), "");
}

TEST_F(RunPlanRoomTest, FilesThatFindNoRoomMeanwhileWaitForIt) {
    add_day("2024-02-01", 1);
    add_day("2024-02-02", 1);
    for (const LaneId lane : {1, 2, 3}) ASSERT_NE(next_that("copy", lane), "");
    EXPECT_EQ(find_full(1).kind, Kind::go_on);
    EXPECT_EQ(find_full(2).kind, Kind::go_on);
    EXPECT_EQ(next(1), "") << "the third may still need room, or leave some";
    EXPECT_EQ(find_full(3).kind, Kind::go_on);
    EXPECT_EQ(make_room(1), 1U);
    for (const LaneId lane : {1, 2, 3}) EXPECT_TRUE(next(lane).starts_with("copy"));
    EXPECT_EQ(ledger.gone, Texts{numbered("2024-02-01", 0)});
}

TEST_F(RunPlanRoomTest, RoomMadeSinceTheOrderIsTriedFirst) {
    add_day("2024-02-01", 1);
    add_day("2024-02-02", 1);
    for (const LaneId lane : {1, 2}) ASSERT_NE(next_that("copy", lane), "");
    EXPECT_EQ(find_full(1).kind, Kind::go_on);
    EXPECT_EQ(find_full(2).kind, Kind::go_on);
    make_room(1);
    EXPECT_TRUE(next(2).starts_with("copy"));
    EXPECT_EQ(find_full(2).kind, Kind::go_on);
    EXPECT_TRUE(next_removal(2).starts_with("remove store/Door/2024-02-02"));
}

TEST_F(RunPlanRoomTest, RoomIsSoughtWhenNothingIsOnItsWayAnyMore) {
    add_day("2024-02-01", 1);
    for (const LaneId lane : {1, 2}) ASSERT_NE(next_that("copy", lane), "");
    EXPECT_EQ(find_full(1).kind, Kind::go_on);
    EXPECT_EQ(next(1), "");
    EXPECT_GT(plan().waiting_orders(), 0);
    world.room += 100;
    carry_out(2);
    EXPECT_EQ(next(1), "room");
}

TEST_F(RunPlanRoomTest, WhatMadeRoomIsNotSentAgainInTheSameRun) {
    world.record("/rec/door", "2024-03-04", "08-00-00.mp4", 100);
    ASSERT_NE(next_that("copy /rec/door/2024-03-04"), "");
    carry_out();
    ASSERT_EQ(run_full().kind, Kind::go_on);
    make_room();
    EXPECT_EQ(ledger.gone, Texts{"Door/2024-03-04/08-00-00.mp4"});
    world.room += 1000;
    EXPECT_EQ(rest_that("copy").size(), 3U);
}

TEST_F(RunPlanRoomTest, NothingGoesForAFileThatCannotHaveRoomEvenThen) {
    add_day("2024-02-01", 2);
    add_day("2024-02-02", 1);
    world.record("/rec/door", "2024-03-05", "09-00-00.mp4", 5000);
    ledger.checkpoints["Door/2024-03-05/09-00-00.mp4"] = {
        "Door/2024-03-05/09-00-00.mp4", "Door/2024-03-05/.09-00-00.mp4.7.part", 0, ""};
    world.room = 1300;
    ASSERT_NE(next_that("copy /rec/door/2024-03-05/09"), "");
    EXPECT_EQ(fail(FailureKind::full, 1, "no room").kind, Kind::go_on);
    EXPECT_EQ(next(), "room");
    EXPECT_EQ(next(2), "") << "nothing else goes on meanwhile";
    carry_out();
    const std::string why =
        "Door/2024-03-05/09-00-00.mp4: needs 5000 bytes, the share has 900 bytes free and 300 "
        "bytes could be removed";
    EXPECT_EQ(notes(SHARE_FULL), Texts{why});
    EXPECT_EQ(next(), "remove store/Door/2024-03-05/.09-00-00.mp4.7.part, folders ");
    carry_out();
    rest();
    EXPECT_TRUE(ledger.gone.empty());
    EXPECT_EQ(counts(), "2 done, 1 failed, 0 left; 200 of 200 bytes") << "others have room";
    EXPECT_EQ(plan().failure(), "1 of 3 files could not be copied; the first: " + why);
}

TEST_F(RunPlanRoomTest, WhatIsOnTheShareAlreadyNeedsNoRoom) {
    add_day("2024-02-01", 3);
    world.record("/rec/door", "2024-03-05", "07-00-00.mp4", 5000);
    world.room = 400;
    ASSERT_NE(next_that("copy /rec/door/2024-03-05/07"), "");
    say(At{4600});
    world.fill();
    world.room += 100;
    EXPECT_EQ(fail(FailureKind::full).kind, Kind::go_on);
    EXPECT_TRUE(next_removal().starts_with("remove"));
}

TEST_F(RunPlanRoomTest, ServerThatDoesNotTellItsRoomIsTakenAtItsWordThatItIsFull) {
    add_day("2024-02-01", 1);
    world.tells_room = false;
    EXPECT_EQ(run_full().kind, Kind::go_on);
    EXPECT_TRUE(next_removal().starts_with("copy")) << "once more, before anything goes";
    EXPECT_EQ(find_full().kind, Kind::go_on);
    EXPECT_EQ(remove_copies(), 1U);
    EXPECT_TRUE(next().starts_with("copy")) << "nobody can prove it";
}

TEST_F(RunPlanRoomTest, OnlyOneDayGoesForAFileWhereTheServerDoesNotTellItsRoom) {
    add_day("2024-02-01", 1);
    add_day("2024-02-02", 1);
    world.tells_room = false;
    ASSERT_EQ(run_full().kind, Kind::go_on);
    ASSERT_TRUE(next_removal().starts_with("copy"));
    ASSERT_EQ(find_full().kind, Kind::go_on);
    ASSERT_EQ(remove_copies(), 1U);
    ASSERT_EQ(run_full().kind, Kind::go_on);
    ASSERT_EQ(next(), "room");
    carry_out();
    const std::string why =
        "Door/2024-03-05/08-00-00.mp4: the share takes no more of it, and does not tell how much "
        "room it has";
    EXPECT_EQ(notes(SHARE_FULL), Texts{why});
    world.room += 1000;
    rest();
    EXPECT_EQ(ledger.gone, Texts{numbered("2024-02-01", 0)});
    EXPECT_TRUE(plan().failure().ends_with(why)) << plan().failure();
}

TEST_F(RunPlanRoomTest, NothingGoesWherePlentyIsToldAndAFileIsRefused) {
    add_day("2024-02-01", 1);
    for (int attempt = 0; attempt < 2; ++attempt) {
        ASSERT_NE(next_that("copy"), "");
        EXPECT_EQ(fail(FailureKind::full, 1, "too large").kind, Kind::go_on);
        ASSERT_EQ(next(), "room");
        carry_out();
    }
    const Texts told = notes(SHARE_FULL);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_TRUE(
        told[0].starts_with("Door/2024-03-05/08-00-00.mp4: the share takes no more of it, "
                            "though it has 11258999"))
        << told[0];
    rest();
    EXPECT_TRUE(ledger.gone.empty());
    EXPECT_EQ(counts(), "2 done, 1 failed, 0 left; 200 of 200 bytes");
}

TEST_F(RunPlanRoomTest, OnlyOneDayGoesForAFileThatIsRefusedWhereItShouldJustFit) {
    add_day("2024-02-01", 1);
    add_day("2024-02-02", 1);
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 5);
    world.room = 210;
    ASSERT_NE(next_that("copy"), "");
    fail(FailureKind::full, 1, "no room");
    EXPECT_TRUE(next_removal().starts_with("copy"));
    fail(FailureKind::full, 1, "no room");
    EXPECT_EQ(make_room(), 1U);
    EXPECT_TRUE(next().starts_with("copy"));
    fail(FailureKind::full, 1, "no room");
    EXPECT_EQ(next(), "room");
    carry_out();
    EXPECT_EQ(notes(SHARE_FULL).size(), 1U);
    world.room += 1000;
    rest();
    EXPECT_EQ(ledger.gone, Texts{numbered("2024-02-01", 0)});
}

TEST_F(RunPlanRoomTest, ServerThatKeepsWhatIsRemovedLosesOneLotAndNoMore) {
    for (const char* day : {"2024-02-01", "2024-02-02", "2024-02-03"}) add_day(day, 2);
    world.keeps_removed = true;
    ASSERT_EQ(run_full().kind, Kind::go_on);
    EXPECT_EQ(remove_copies(), 2U);
    EXPECT_EQ(next(), "room for 100");
    carry_out();
    const std::string why =
        "Door/2024-03-05/08-00-00.mp4: 200 bytes of older copies were removed, and the share has "
        "only 0 bytes more free than before: does it keep what is deleted?";
    EXPECT_EQ(notes(SHARE_FULL), Texts{why});
    EXPECT_TRUE(next().find("-7.part") != std::string::npos) << "what was begun goes";
    carry_out();
    ASSERT_EQ(run_full().kind, Kind::go_on);
    rest();
    EXPECT_EQ(ledger.gone.size(), 2U) << "for no other file either";
    EXPECT_TRUE(plan().failure().find(why) != std::string::npos) << plan().failure();
}

TEST_F(RunPlanRoomTest, HalfOfWhatWasRemovedIsEnough) {
    add_day("2024-02-01", 2);
    ASSERT_EQ(run_full().kind, Kind::go_on);
    ASSERT_EQ(remove_copies(), 2U);
    world.room -= 100;
    prove_room();
    EXPECT_EQ(notes(SHARE_FULL), Texts{});
    EXPECT_TRUE(next().starts_with("copy"));
}

TEST_F(RunPlanRoomTest, CopiesThatWereGoneBeforeProveNothing) {
    add_day("2024-02-01", 2);
    add_day("2024-02-02", 2);
    for (int copy : {0, 1}) world.share.erase("store/" + numbered("2024-02-01", copy));
    ASSERT_EQ(run_full().kind, Kind::go_on);
    EXPECT_EQ(remove_copies(), 2U);
    ASSERT_EQ(run_full().kind, Kind::go_on) << "tried at once, and the next day goes";
    EXPECT_EQ(make_room(), 2U);
}

TEST_F(RunPlanRoomTest, ProofOutlivesItsLane) {
    add_day("2024-02-01", 1);
    ASSERT_EQ(run_full().kind, Kind::go_on);
    ASSERT_TRUE(next_removal().starts_with("remove"));
    plan().lose(1);
    ASSERT_TRUE(next(2).starts_with("remove"));
    carry_out(2);
    ASSERT_EQ(next(2), "room for 50");
    plan().lose(2);
    EXPECT_EQ(next(3), "room for 50");
    carry_out(3);
    EXPECT_TRUE(next(1).starts_with("copy"));
}

TEST_F(RunPlanRoomTest, NothingGoesByADateThatIsDoubted) {
    add_day("2024-02-01", 1);
    ledger.date = TaskDate{.trusted = "2023-01-01"};
    EXPECT_EQ(run_full().kind, Kind::go_on);
    EXPECT_TRUE(plan().failure().starts_with("the share is full: no room; the date 2024-03-20"))
        << plan().failure();
    rest();
    EXPECT_TRUE(ledger.gone.empty());
}

TEST_F(RunPlanRoomTest, FilesThatFillTheShareTogetherAreSentOneByOne) {
    for (const LaneId lane : {1, 2, 3}) ASSERT_NE(next_that("copy", lane), "");
    for (const LaneId lane : {1, 2, 3}) EXPECT_EQ(fail(FailureKind::full, lane).kind, Kind::go_on);
    for (const LaneId lane : {1, 2, 3}) {
        EXPECT_TRUE(next(lane).find("-7.part") != std::string::npos) << "what was begun goes first";
        EXPECT_EQ(notes(SHARE_FULL), Texts{});
    }
    for (const LaneId lane : {1, 2, 3}) carry_out(lane);
    EXPECT_TRUE(ledger.checkpoints.empty());
    EXPECT_TRUE(next(1).starts_with("copy"));
    EXPECT_EQ(next(2), "") << "nothing goes beside it";
    carry_out(1);
    EXPECT_TRUE(next(1).starts_with("copy"));
    carry_out(1);
    EXPECT_EQ(ledger.recorded.size(), 2U);
    EXPECT_TRUE(next(1).starts_with("copy"));
    expect_full(fail(FailureKind::full, 1, "no room"));
}

TEST_F(RunPlanRoomTest, FileIsSentAgainWhenNothingIsLeftOfTheOthers) {
    for (const LaneId lane : {1, 2}) ASSERT_NE(next_that("copy", lane), "");
    for (const LaneId lane : {1, 2}) fail(FailureKind::full, lane);
    for (int removal = 0; removal < 2; ++removal) {
        EXPECT_TRUE(next(1).starts_with("remove")) << "though a single lane is left";
        carry_out(1);
    }
    EXPECT_TRUE(next(1).starts_with("copy"));
}

TEST_F(RunPlanRoomTest, CopiesThatAnotherTaskTakesOverMeanwhileMakeNoRoom) {
    add_day("2024-02-01", 1);
    world.tells_room = false;
    ASSERT_EQ(run_full().kind, Kind::go_on);
    ASSERT_TRUE(next_removal().starts_with("copy"));
    ASSERT_EQ(find_full().kind, Kind::go_on);
    ASSERT_EQ(next(), "room");
    for (const auto& [path, copy] : ledger.copies) ledger.foreign.insert(path);
    carry_out();
    EXPECT_TRUE(next().starts_with("copy"));
    EXPECT_TRUE(ledger.gone.empty());
}

TEST_F(RunPlanRoomTest, FileThatIsAloneInFindingTheShareFullEndsTheCopying) {
    for (const LaneId lane : {1, 2}) ASSERT_NE(next_that("copy", lane), "");
    carry_out(2);
    expect_full(fail(FailureKind::full, 1, "no room"));
}

TEST_F(RunPlanRoomTest, FileWhoseFailureIsOlderThanTheRoomThatOthersLeftIsSentAgain) {
    for (const LaneId lane : {1, 2, 3}) ASSERT_NE(next_that("copy", lane), "");
    EXPECT_EQ(fail(FailureKind::full, 1).kind, Kind::go_on);
    EXPECT_NE(next(1).find("-7.part"), std::string::npos);
    carry_out(1);
    EXPECT_EQ(next(1), "") << "what lanes are at stays, and nothing is sent beside it";
    carry_out(3);
    EXPECT_EQ(fail(FailureKind::full, 2).kind, Kind::go_on) << "heard of late";
    EXPECT_EQ(plan().failure(), "");
    EXPECT_EQ(notes(SHARE_FULL), Texts{});
    remove_unfinished(1);
    EXPECT_TRUE(next(1).starts_with("copy"));
    carry_out(1);
    EXPECT_TRUE(next(1).starts_with("copy"));
    expect_full(fail(FailureKind::full, 1, "no room"));
    EXPECT_EQ(ledger.recorded.size(), 2U);
}

TEST_F(RunPlanRoomTest, WhatIsBeingRemovedIsNotRemovedAgain) {
    for (const LaneId lane : {1, 2}) ASSERT_NE(next_that("copy", lane), "");
    for (const LaneId lane : {1, 2}) {
        EXPECT_EQ(fail(FailureKind::full, lane).kind, Kind::go_on);
        EXPECT_TRUE(next(lane).starts_with("remove"));
    }
    EXPECT_EQ(next(3), "");
    for (const LaneId lane : {1, 2}) carry_out(lane);
    EXPECT_TRUE(next(3).starts_with("copy"));
}

TEST_F(RunPlanRoomTest, WhatLostLanesHaveLeftGoesBeforeTheShareIsTakenForFull) {
    for (const LaneId lane : {1, 2, 3}) ASSERT_NE(next_that("copy", lane), "");
    for (const LaneId lane : {1, 2, 3}) plan().lose(lane);
    EXPECT_TRUE(next(1).starts_with("copy")) << "one lane alone connects first";
    EXPECT_EQ(fail(FailureKind::full, 1).kind, Kind::go_on);
    EXPECT_EQ(plan().failure(), "");
    remove_unfinished(3);
    EXPECT_EQ(rest_that("copy").size(), 3U);
}

TEST_F(RunPlanRoomTest, WhatAnEarlierRunHasLeftGoesBeforeTheShareIsTakenForFull) {
    const std::string path = "Door/2024-03-07/08-00-00.mp4";
    world.record("/rec/door", "2024-03-07", "08-00-00.mp4", 100);
    ledger.checkpoints[path] = {path, "Door/2024-03-07/.08-00-00.mp4.7.part", 50, "hash"};
    EXPECT_EQ(run_full().kind, Kind::go_on);
    EXPECT_EQ(plan().failure(), "");
    remove_unfinished(2);
    expect_full(run_full());
}

TEST_F(RunPlanRoomTest, FileOfALostLaneIsSentAloneWhenTheShareHasBeenFull) {
    for (const LaneId lane : {1, 2}) ASSERT_NE(next_that("copy", lane), "");
    fail(FailureKind::full, 1);
    plan().lose(2);
    EXPECT_TRUE(next(1).starts_with("remove"));
    EXPECT_EQ(next(2), "");
    carry_out(1);
    for (int file = 0; file < 2; ++file) {
        EXPECT_TRUE(next(1).starts_with("copy"));
        EXPECT_EQ(next(2), "");
        carry_out(1);
    }
}

TEST_F(RunPlanRoomTest, RemovalIsKnownBeforeItIsOrdered) {
    add_day("2024-02-01", 2);
    ASSERT_EQ(run_full().kind, Kind::go_on);
    ASSERT_EQ(next(), "room");
    carry_out();
    EXPECT_TRUE(ledger.half_removed.empty());
    ASSERT_TRUE(next().starts_with("remove"));
    EXPECT_EQ(ledger.half_removed.size(), 2U);
    carry_out();
    EXPECT_TRUE(ledger.half_removed.empty());
}

TEST_F(RunPlanRoomTest, RemovalThatAKillInterruptedIsCompletedBeforeAnythingIsCopied) {
    add_day("2024-02-01", 2);
    for (auto& [path, copy] : ledger.copies) copy.removed = true;
    ledger.half_removed = {numbered("2024-02-01", 0), numbered("2024-02-01", 1)};
    world.record("/rec/door", "2024-02-01", "1000.mp4", 100);
    goal.selection.first_day = "2024-01-01";
    const Texts orders = rest();
    const auto removal = std::ranges::find_if(
        orders, [](const std::string& order) { return order.starts_with("remove"); });
    const auto copy = std::ranges::find_if(
        orders, [](const std::string& order) { return order.starts_with("copy"); });
    EXPECT_LT(removal, copy);
    EXPECT_TRUE(ledger.half_removed.empty());
    EXPECT_EQ(ledger.recorded.size(), 3U) << "what made room is not sent again";
}

TEST_F(RunPlanRoomTest, RunThatWillNotFitSaysSoBeforeItCopies) {
    world.room = 250;
    const std::string first = next_that("copy");
    ASSERT_NE(first, "");
    EXPECT_EQ(notes(WILL_NOT_FIT),
              Texts{"300 bytes are to be copied, the share has 250 bytes free"});
}

TEST_F(RunPlanRoomTest, OldCopiesThatMayGoCountAsRoom) {
    add_day("2024-02-01", 1);
    world.room = 350;
    ASSERT_NE(next_that("copy"), "");
    EXPECT_EQ(notes(WILL_NOT_FIT), Texts{});
}

TEST_F(RunPlanRoomTest, NoMoreOldCopiesAreCountedThanHaveToMakeWay) {
    add_day("2024-02-01", 50);
    world.room = 5000 + 300 - 150;
    ASSERT_NE(next_that("copy"), "");
    EXPECT_EQ(notes(WILL_NOT_FIT), Texts{});
    EXPECT_EQ(ledger.counted, 2);
}

TEST_F(RunPlanRoomTest, OldCopiesThatMustStayDoNot) {
    add_day("2024-02-01", 1);
    goal.when_full = WhenFull::fail;
    world.room = 350;
    ASSERT_NE(next_that("copy"), "");
    EXPECT_EQ(notes(WILL_NOT_FIT).size(), 1U);
}

TEST_F(RunPlanRoomTest, CopyThatIsOnlyToBeComparedNeedsNoRoom) {
    const std::string path = "Door/2024-03-05/doubted.mp4";
    world.record("/rec/door", "2024-03-05", "doubted.mp4", 1000, 10'000);
    ledger.add(path, "2024-03-05", 1000);
    ledger.copies.at(path).doubted = true;
    world.share["store/" + path] = 1000;
    goal.when_full = WhenFull::fail;
    world.room = 1350;
    ASSERT_NE(next_that("copy"), "");
    EXPECT_EQ(notes(WILL_NOT_FIT), Texts{});
    EXPECT_EQ(counts(), "0 done, 0 failed, 4 left; 0 of 1300 bytes") << "it takes its time";
}

TEST_F(RunPlanRoomTest, RoomThatCannotBeMadeEndsTheRun) {
    add_day("2024-02-01", 1);
    ASSERT_EQ(run_full(1).kind, Kind::go_on);
    ASSERT_TRUE(next_removal(1).starts_with("remove"));
    const FailureStep step = fail(FailureKind::denied, 1, "the words");
    EXPECT_EQ(step.kind, Kind::end_run);
    EXPECT_EQ(step.why, "the words");
    EXPECT_TRUE(ledger.gone.empty());
}

TEST_F(RunPlanRoomTest, MemoryThatFailsHalfWayHasTheRemovalDoneAgain) {
    add_day("2024-02-01", 2);
    ASSERT_EQ(run_full(1).kind, Kind::go_on);
    const std::string order = next_removal(1);
    const int second = ledger.calls + 2;
    ledger.refuses = [second](int call) { return call == second; };
    EXPECT_THROW(plan().take(1, Removed{{Fate::gone, Fate::gone}}), standalone::DatabaseError);
    plan().lose(1);
    EXPECT_EQ(next(2), order);
    carry_out(2);
    EXPECT_EQ(notes(ROOM_MADE), Texts{"2024-02-01, 2 files"});
    EXPECT_TRUE(ledger.copies.at(numbered("2024-02-01", 1)).removed);
}

TEST_F(RunPlanRoomTest, MemoryThatFailsBeforeAnythingIsAskedLeavesTheFileToBeGivenAgain) {
    add_day("2024-02-01", 1);
    const std::string file = next_that("copy");
    ledger.refuses = [](int) { return true; };
    EXPECT_THROW(fail(FailureKind::full), standalone::DatabaseError);
    ledger.refuses = [](int) { return false; };
    plan().lose(1);
    EXPECT_EQ(next(2), file);
    EXPECT_EQ(find_full(2).kind, Kind::go_on);
    EXPECT_EQ(make_room(2), 1U);
}

}  // namespace
