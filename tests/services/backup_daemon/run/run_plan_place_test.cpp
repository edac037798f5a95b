// How a run finds out where its copies go, and what it makes of that.
#include "tests/services/backup_daemon/run/run_plan_fixture.h"

using namespace services;

namespace {

/// A plan that nobody has told yet where copies go.
class RunPlanPlaceTest : public RunPlanTest {
protected:
    RunPlan& plan() {
        if (!fresh_) fresh_.emplace(goal, places, memory, tally);
        return *fresh_;
    }

    std::string next(LaneId lane = 1) {
        plan().settle();
        const auto order = plan().next(lane);
        return order ? text_of(*order) : "";
    }

    /// Has the run hear where copies go; gives the order after that.
    std::string settle(const FoundPlace& place) {
        next();
        EXPECT_TRUE(plan().take(1, place));
        return next();
    }

    const std::string ask{"place store of 0123456789abcdef0123456789abcdef task 7 known new"};
    const std::string days{"days /rec/door 2024-03-01..2024-03-31"};

private:
    std::optional<RunPlan> fresh_;
};

TEST_F(RunPlanPlaceTest, IsFoundBeforeAnythingElseIsAsked) {
    EXPECT_EQ(next(1), ask);
    EXPECT_EQ(next(2), "");
    EXPECT_FALSE(plan().is_over());
}

TEST_F(RunPlanPlaceTest, AnswerThatTheMemoryRefusesIsTakenTheNextTime) {
    for (int failing = 1;; ++failing) {
        SCOPED_TRACE(failing);
        CopyLedger forgetful;
        LedgerPlaces some_places(forgetful);
        LedgerMemory some_memory(forgetful);
        RunTally figures(clock);
        RunPlan run(goal, some_places, some_memory, figures);
        run.settle();
        ASSERT_TRUE(run.next(1));
        const int before = forgetful.calls;
        forgetful.refuses = [=](int call) { return call == before + failing; };
        const FoundPlace place{
            .below = "Recorder 01234567", .id = "d", .marked = true, .is_new = true};
        bool refused = false;
        try {
            EXPECT_TRUE(run.take(1, place));
        } catch (const standalone::DatabaseError&) {
            refused = true;
            EXPECT_TRUE(run.take_notes().empty());
            EXPECT_TRUE(run.take(1, place));
        }
        EXPECT_EQ(forgetful.destination, "d");
        EXPECT_EQ(forgetful.folders.size(), 2U);
        EXPECT_EQ(run.take_notes().size(), 1U);
        if (!refused) break;
    }
}

TEST_F(RunPlanPlaceTest, LostLaneLeavesTheQuestionOpen) {
    next();
    plan().lose(1);
    EXPECT_EQ(next(2), ask);
}

TEST_F(RunPlanPlaceTest, OnceFoundTheDaysAreAskedForAndTheCamerasTold) {
    EXPECT_EQ(settle({.below = "", .id = "d", .marked = true}),
              "write store/.recording-backup/cameras.json via "
              "store/.recording-backup/.cameras.json.01234567-7.part: " +
                  cameras_text({{"g1", "Door"}, {"g2", "Yard"}}, 1000));
    EXPECT_EQ(next(2), "") << "one after the other";
    EXPECT_TRUE(plan().take(1, Done()));
    EXPECT_EQ(next(), days);
    EXPECT_EQ(ledger.destination, "d");
    EXPECT_TRUE(ledger.marked);
    EXPECT_EQ(ledger.folders, (CameraFolders{{"g1", "Door"}, {"g2", "Yard"}}));
    EXPECT_TRUE(notes(OWN_FOLDER_MADE).empty());
}

TEST_F(RunPlanPlaceTest, NothingIsWrittenThatIsToldAlready) {
    EXPECT_EQ(settle({.below = "",
                      .id = "d",
                      .marked = true,
                      .cameras = {{"g1", "Door"}, {"g2", "Yard"}, {"g3", "Hall"}}}),
              days);
}

TEST_F(RunPlanPlaceTest, NothingIsToldWhereThereIsNoMarker) {
    EXPECT_EQ(settle({.below = "", .id = "d"}), days);
    EXPECT_FALSE(ledger.marked);
}

TEST_F(RunPlanPlaceTest, FolderOfItsOwnIsToldWhenItIsMade) {
    settle({.below = "Recorder 01234567", .id = "d", .marked = true, .is_new = true});
    Texts told;
    for (const auto& note : plan().take_notes())
        if (note.event == OWN_FOLDER_MADE) told.push_back(note.detail);
    EXPECT_EQ(told, Texts{"store/Recorder 01234567"});
}

TEST_F(RunPlanPlaceTest, CopiesGoToTheFolderThatIsTheirs) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    world.place = {.below = "Recorder 01234567",
                   .id = "d",
                   .marked = true,
                   .cameras = {{"g1", "Old door"}, {"g2", "Yard"}}};
    EXPECT_EQ(RunPlanTest::next_that("copy"),
              "copy /rec/door/2024-03-05/08-00-00.mp4 -> "
              "store/Recorder 01234567/Old door/2024-03-05/08-00-00.mp4 via "
              "store/Recorder 01234567/Old door/2024-03-05/.08-00-00.mp4.01234567-7.part "
              "recorded -1 from 0 \"\" checked");
}

TEST_F(RunPlanPlaceTest, FailureEndsTheRunUnlessALaneMayHelp) {
    for (int number = 0; number <= static_cast<int>(LAST_FAILURE_KIND); ++number) {
        const auto kind = static_cast<FailureKind>(number);
        const bool lane =
            kind == FailureKind::lost || kind == FailureKind::other || kind == FailureKind::unknown;
        ASSERT_EQ(next(), ask);
        const FailureStep step = plan().fail(1, {kind, "the words"});
        EXPECT_EQ(step.kind, lane ? FailureStep::Kind::lose_lane : FailureStep::Kind::end_run)
            << number;
        plan().lose(1);
    }
}

}  // namespace
