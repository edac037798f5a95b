// What the plan removes when all is copied: copies that are too old, and files begun for nothing.
#include "tests/services/backup_daemon/run/run_plan_fixture.h"

using namespace services;

namespace {

class RunPlanCleanupTest : public RunPlanTest {
protected:
    RunPlanCleanupTest() {
        goal.first_kept_day = "2024-03-01";
        for (const char* camera : {"Door", "Yard"})
            ledger.add(camera + std::string("/2024-03-19/newest.mp4"), "2024-03-19");
    }

    void add_old(const std::string& name, const std::string& day = "2024-02-01") {
        ledger.add("Door/" + day + "/" + name, day);
    }

    void begin_file(const std::string& day, const std::string& name) {
        const std::string path = "Door/" + day + "/" + name;
        ledger.checkpoints[path] = {path, "Door/" + day + "/." + name + ".01234567-7.part", 50,
                                    "abc"};
    }
};

TEST_F(RunPlanCleanupTest, CopiesOfDaysBeforeTheFirstKeptOneGo) {
    add_old("a.mp4", "2024-02-29");
    add_old("b.mp4", "2024-03-01");
    EXPECT_EQ(rest_that("remove"),
              Texts{"remove store/Door/2024-02-29/a.mp4=100, folders store/Door/2024-02-29"});
    EXPECT_EQ(ledger.gone, Texts{"Door/2024-02-29/a.mp4"});
    EXPECT_TRUE(ledger.copies.contains("Door/2024-03-01/b.mp4"));
    EXPECT_FALSE(ledger.copies.contains("Door/2024-02-29/a.mp4"));
    EXPECT_EQ(notes(RETENTION_PASS), Texts{"1 files of days before 2024-03-01 removed"});
}

TEST_F(RunPlanCleanupTest, ManyGoByTheHundredUntilNoneIsLeft) {
    for (int number = 0; number < 250; ++number) add_old(std::to_string(1000 + number) + ".mp4");
    std::vector<std::size_t> sizes;
    while (!next_that("remove").empty()) {
        const auto before = ledger.gone.size();
        EXPECT_EQ(next(2), "");
        carry_out();
        sizes.push_back(ledger.gone.size() - before);
    }
    EXPECT_EQ(sizes, (std::vector<std::size_t>{100, 100, 50}));
    EXPECT_EQ(ledger.copies.size(), 2U) << "the newest of each camera";
    EXPECT_EQ(notes(RETENTION_PASS), Texts{"250 files of days before 2024-03-01 removed"});
    EXPECT_TRUE(plan().is_over());
}

TEST_F(RunPlanCleanupTest, PassIsToldAlsoWhenNothingWasTooOld) {
    rest();
    EXPECT_EQ(notes(RETENTION_PASS), Texts{"0 files of days before 2024-03-01 removed"});
}

TEST_F(RunPlanCleanupTest, RunThatCouldNotReadAChannelRemovesNoCopy) {
    add_old("a.mp4");
    begin_file("2023-11-11", "09-00-00.mp4");
    ASSERT_TRUE(next().starts_with("days /rec/door"));
    fail(FailureKind::source);
    EXPECT_EQ(rest_that("remove"),
              Texts{"remove store/Door/2023-11-11/.09-00-00.mp4.01234567-7.part, "
                    "folders "});
    EXPECT_TRUE(ledger.gone.empty());
    EXPECT_EQ(notes(RETENTION_PASS), Texts{"0 files of days before 2024-03-01 removed: a run that "
                                           "has failed removes none"});
}

TEST_F(RunPlanCleanupTest, RunThatCouldNotCopyAFileRemovesNoCopy) {
    add_old("a.mp4");
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    ASSERT_NE(next_that("copy"), "");
    fail(FailureKind::occupied);
    rest();
    EXPECT_TRUE(ledger.gone.empty());
    EXPECT_TRUE(plan().is_over());
}

TEST_F(RunPlanCleanupTest, NothingIsTooOldWithoutRetention) {
    goal.first_kept_day = "";
    add_old("a.mp4");
    EXPECT_EQ(rest_that("remove"), Texts{});
    EXPECT_EQ(notes(RETENTION_PASS), Texts{});
    EXPECT_TRUE(plan().is_over());
}

TEST_F(RunPlanCleanupTest, DescriptionsGoWithTheirCopies) {
    add_old("a.mp4");
    add_old("b.mp4");
    CopiedFile& described = ledger.copies.at("Door/2024-02-01/a.mp4");
    described.side_file = true;
    described.sha256 = "abc";
    EXPECT_EQ(rest_that("remove"),
              Texts{"remove store/Door/2024-02-01/a.mp4=100+\"length\":100,\"sha256\":\"abc\"}\n "
                    "store/Door/2024-02-01/b.mp4=100, folders store/Door/2024-02-01"});
}

TEST_F(RunPlanCleanupTest, TimeThatTheShareToldForACopyIsLookedFor) {
    add_old("a.mp4");
    ledger.copies.at("Door/2024-02-01/a.mp4").share_modified_ns = 77;
    EXPECT_TRUE(next_that("remove").starts_with("remove store/Door/2024-02-01/a.mp4=100@77,"));
}

TEST_F(RunPlanCleanupTest, FileInThePlaceOfACopyStaysIsToldAndForgotten) {
    for (const char* name : {"a.mp4", "b.mp4", "c.mp4"}) add_old(name);
    ASSERT_NE(next_that("remove"), "");
    say(Removed{{Fate::stayed, Fate::gone, Fate::description_stayed}});
    EXPECT_EQ(
        notes(COPY_NOT_REMOVED),
        (Texts{"Door/2024-02-01/a.mp4 is not as it was copied, and stays",
               "the description of Door/2024-02-01/c.mp4 is not as it was copied, and stays"}));
    EXPECT_EQ(ledger.copies.size(), 2U) << "it is never looked for again";
    rest();
    EXPECT_EQ(notes(RETENTION_PASS), Texts{"2 files of days before 2024-03-01 removed"});
}

TEST_F(RunPlanCleanupTest, OfManyFilesInThePlaceOfCopiesTheFirstTenAreTold) {
    for (int number = 0; number < 30; ++number) add_old(std::to_string(10 + number) + ".mp4");
    ASSERT_NE(next_that("remove"), "");
    say(Removed{std::vector<Fate>(30, Fate::stayed)});
    EXPECT_EQ(notes(COPY_NOT_REMOVED).size(), 10U);
}

TEST_F(RunPlanCleanupTest, NewestDayOfACameraStaysHoweverOldItIs) {
    ledger.copies.erase("Door/2024-03-19/newest.mp4");
    add_old("a.mp4", "2023-01-01");
    add_old("b.mp4", "2023-01-02");
    add_old("c.mp4", "2023-01-02");
    ledger.add("Yard/2023-01-02/d.mp4", "2023-01-02");
    rest();
    EXPECT_EQ(ledger.gone, (Texts{"Door/2023-01-01/a.mp4", "Yard/2023-01-02/d.mp4"}));
    EXPECT_EQ(notes(RETENTION_PASS),
              Texts{"2 files of days before 2024-03-01 removed; 2 stay, of the newest day that a "
                    "camera has"});
}

TEST_F(RunPlanCleanupTest, PreviewTellsWhatARunWouldDoAndOrdersAndWritesNothing) {
    goal.purpose = RunPurpose::preview;
    add_old("a.mp4");
    add_old("b.mp4", "2024-02-02");
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    world.record("/rec/door", "2024-03-06", "08-00-00.mp4", 1000);
    world.record("/rec/yard", "2024-03-05", "08-00-00.mp4", 50, 500);
    ledger.add("Yard/2024-03-05/08-00-00.mp4", "2024-03-05", 50);
    world.share["store/Yard/2024-03-05/08-00-00.mp4"] = 50;
    ledger.date = TaskDate{.trusted = "2024-03-01"};
    world.room = 1000;
    for (const std::string& order : rest())
        EXPECT_TRUE(order.starts_with("days") || order.ends_with("asked") || order == "room")
            << order;
    const RunPreview seen = plan().preview();
    EXPECT_EQ(seen.to_copy.files, 2);
    EXPECT_EQ(seen.to_copy.bytes, 1100);
    EXPECT_EQ(seen.cameras, 1);
    EXPECT_EQ(seen.days, 2);
    EXPECT_EQ(seen.first_day, "2024-03-05");
    EXPECT_EQ(seen.last_day, "2024-03-06");
    EXPECT_EQ(seen.too_old.files, 2);
    EXPECT_EQ(seen.too_old.bytes, 200);
    EXPECT_EQ(seen.room->free, 950);
    EXPECT_FALSE(seen.fits);
    EXPECT_EQ(seen.failure, "");
    EXPECT_EQ(ledger.date, TaskDate{.trusted = "2024-03-01"});
    EXPECT_TRUE(ledger.checkpoints.empty() && ledger.recorded.empty() && ledger.gone.empty());
}

TEST_F(RunPlanCleanupTest, PreviewTellsApartWhatIsOnlyToBeCompared) {
    goal.purpose = RunPurpose::preview;
    for (const std::string name : {"there.mp4", "gone.mp4"}) {
        world.record("/rec/yard", "2024-03-05", name, 50, 500);
        ledger.add("Yard/2024-03-05/" + name, "2024-03-05", 50);
        ledger.copies.at("Yard/2024-03-05/" + name).doubted = true;
    }
    world.share["store/Yard/2024-03-05/there.mp4"] = 50;
    world.room = 100;
    rest();
    const RunPreview seen = plan().preview();
    EXPECT_EQ(seen.to_copy.files, 1);
    EXPECT_EQ(seen.to_copy.bytes, 50);
    EXPECT_EQ(seen.to_compare.files, 1);
    EXPECT_EQ(seen.to_compare.bytes, 50);
    EXPECT_TRUE(seen.fits);
}

TEST_F(RunPlanCleanupTest, PreviewSeesThatACopyIsGoneFromTheShare) {
    goal.purpose = RunPurpose::preview;
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 50, 500);
    ledger.add("Door/2024-03-05/08-00-00.mp4", "2024-03-05", 50);
    rest();
    EXPECT_EQ(plan().preview().to_copy.files, 1);
}

TEST_F(RunPlanCleanupTest, NothingGoesByADateThatIsDoubted) {
    add_old("a.mp4");
    goal.today = "2029-03-20";
    ledger.date = TaskDate{.trusted = "2024-03-19"};
    EXPECT_EQ(rest_that("remove"), Texts{});
    const Texts told = notes(RETENTION_PASS);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_TRUE(
        told[0].starts_with("0 files of days before 2024-03-01 removed: the date "
                            "2029-03-20 is doubted: it is 1827 days after the last "
                            "run's, 2024-03-19"))
        << told[0];
    EXPECT_EQ(ledger.date, (TaskDate{"2024-03-19", "2029-03-20", "2029-03-20"}));
}

TEST_F(RunPlanCleanupTest, DateOfTheFirstRunIsToldByTheNewestRecordingOfWhateverDay) {
    add_old("a.mp4");
    ledger.date.reset();
    world.record("/rec/yard", "2024-04-05", "08-00-00.mp4", 100);
    goal.today = "2024-05-06";
    EXPECT_EQ(rest_that("remove").size(), 1U);
    EXPECT_EQ(ledger.date, TaskDate{"2024-05-06"});
}

TEST_F(RunPlanCleanupTest, DateOfTheFirstRunIsDoubtedLongAfterTheNewestRecording) {
    add_old("a.mp4");
    ledger.date.reset();
    world.record("/rec/yard", "2024-04-05", "08-00-00.mp4", 100);
    goal.today = "2024-05-07";
    EXPECT_EQ(rest_that("remove"), Texts{});
}

TEST_F(RunPlanCleanupTest, InnerFoldersGoBeforeThoseThatHoldThem) {
    add_old("a.mp4");
    ledger.add("Door/2024-02-02/alarm/b.mp4", "2024-02-02");
    ledger.add("Yard/2024-02-01/c.mp4", "2024-02-01");
    ledger.add("Yard/2024-02-01/alarm/d.mp4", "2024-02-01");
    const Texts orders = rest_that("remove");
    ASSERT_EQ(orders.size(), 1U);
    EXPECT_EQ(orders[0].substr(orders[0].find(", folders")),
              ", folders store/Yard/2024-02-01/alarm store/Yard/2024-02-01 "
              "store/Door/2024-02-02/alarm store/Door/2024-02-02 store/Door/2024-02-01");
}

TEST_F(RunPlanCleanupTest, NothingGoesBeforeAllIsCopied) {
    add_old("a.mp4");
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    ASSERT_NE(next_that("copy"), "");
    EXPECT_EQ(next(2), "");
    carry_out();
    EXPECT_TRUE(next().starts_with("remove"));
}

TEST_F(RunPlanCleanupTest, CopiesOfOtherTasksStay) {
    add_old("a.mp4");
    ledger.foreign = {"Door/2024-02-01/a.mp4"};
    EXPECT_EQ(rest_that("remove"), Texts{});
}

TEST_F(RunPlanCleanupTest, RemovalOfALostLaneIsDoneAgainAndCountedOnce) {
    add_old("a.mp4");
    const std::string order = next_that("remove");
    plan().lose(1);
    EXPECT_EQ(next(2), order);
    carry_out(2);
    rest();
    EXPECT_EQ(notes(RETENTION_PASS), Texts{"1 files of days before 2024-03-01 removed"});
}

TEST_F(RunPlanCleanupTest, FilesBegunForNothingGoOfWhateverDay) {
    begin_file("2024-03-05", "08-00-00.mp4");
    begin_file("2023-11-11", "09-00-00.mp4");
    EXPECT_EQ(rest_that("remove"),
              (Texts{"remove store/Door/2023-11-11/.09-00-00.mp4.01234567-7.part, folders ",
                     "remove store/Door/2024-03-05/.08-00-00.mp4.01234567-7.part, folders "}));
    EXPECT_TRUE(ledger.checkpoints.empty());
    EXPECT_TRUE(ledger.gone.empty());
    EXPECT_TRUE(plan().is_over());
}

TEST_F(RunPlanCleanupTest, FilesThatDeletedTasksHadBegunGoToo) {
    ledger.abandoned = {{"Hall/2024-03-05/1.mp4", "Hall/2024-03-05/.1.mp4.01234567-6.part", 5, ""}};
    EXPECT_EQ(rest_that("remove"),
              Texts{"remove store/Hall/2024-03-05/.1.mp4.01234567-6.part "
                    "store/Hall/2024-03-05/.1.mp4.01234567-6.part.json, folders "});
    EXPECT_TRUE(ledger.abandoned.empty());
    EXPECT_TRUE(ledger.gone.empty());
    EXPECT_EQ(plan().failure(), "");
}

TEST_F(RunPlanCleanupTest, RunDoesNotFailOfADeletedTasksFileThatStays) {
    for (const FailureKind kind :
         {FailureKind::denied, FailureKind::other, FailureKind::full, FailureKind::occupied}) {
        ledger.abandoned = {{"Hall/1.mp4", "Hall/.1.mp4.01234567-6.part", 5, ""}};
        RunPlan run(goal, places, memory, tally);
        std::optional<Order> order;
        for (run.settle(); (order = run.next(1)); run.settle()) {
            if (std::holds_alternative<RemoveFiles>(*order)) break;
            for (const auto& report : world.carry_out(*order)) run.take(1, report);
        }
        ASSERT_TRUE(order);
        const bool may_be_the_lane = kind == FailureKind::other;
        EXPECT_EQ(run.fail(1, {kind, "no"}).kind,
                  may_be_the_lane ? FailureStep::Kind::replace_lane : FailureStep::Kind::go_on);
        run.settle();
        order = run.next(1);
        ASSERT_TRUE(order && std::holds_alternative<AskRoom>(*order)) << "nothing else is left";
        for (const auto& report : world.carry_out(*order)) run.take(1, report);
        run.settle();
        EXPECT_TRUE(run.is_over());
        EXPECT_EQ(run.failure(), "");
        EXPECT_EQ(ledger.abandoned.size(), 1U) << "for the next run";
    }
}

TEST_F(RunPlanCleanupTest, LaneThatIsLostOverADeletedTasksFileIsLost) {
    ledger.abandoned = {{"Hall/1.mp4", "Hall/.1.mp4.01234567-6.part", 5, ""}};
    ASSERT_NE(next_that("remove"), "");
    for (int attempt = 1; attempt <= 3; ++attempt) {
        EXPECT_EQ(fail(FailureKind::lost).kind, FailureStep::Kind::lose_lane);
        plan().lose(1);
        EXPECT_EQ(next().starts_with("remove"), attempt < 3) << "the file may be why";
    }
    EXPECT_TRUE(plan().is_busy(1)) << "the run has nothing else but to note the room";
    carry_out();
    plan().settle();
    EXPECT_TRUE(plan().is_over());
    EXPECT_EQ(plan().failure(), "");
}

TEST_F(RunPlanCleanupTest, CleanUpOfADeletedTaskRemovesItsFilesAndNothingElse) {
    begin_file("2024-03-05", "08-00-00.mp4");
    add_old("a.mp4");
    world.record("/rec/door", "2024-03-05", "09-00-00.mp4", 100);
    goal.channels.clear();
    goal.purpose = RunPurpose::clean_up;
    world.place = {.below = "", .id = "d", .marked = true};
    EXPECT_EQ(rest(), (Texts{"place store of 0123456789abcdef0123456789abcdef task 7 known new "
                             "only look",
                             "remove store/Door/2024-03-05/.08-00-00.mp4.01234567-7.part, "
                             "folders "}));
    EXPECT_TRUE(ledger.checkpoints.empty() && ledger.gone.empty() && ledger.recorded.empty());
    EXPECT_TRUE(plan().take_notes().empty());
    EXPECT_TRUE(plan().is_over());
}

TEST_F(RunPlanCleanupTest, FileThatWasBegunAndIsCompletedLeavesNothing) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    begin_file("2024-03-05", "08-00-00.mp4");
    EXPECT_EQ(rest_that("remove"), Texts{});
}

TEST_F(RunPlanCleanupTest, FilesBegunGoLastAndAreForgottenWhenTheyAreGone) {
    begin_file("2023-11-11", "09-00-00.mp4");
    add_old("a.mp4");
    EXPECT_TRUE(next_that("remove").starts_with("remove store/Door/2024-02-01"));
    EXPECT_EQ(next(2), "");
    carry_out();
    EXPECT_TRUE(next().starts_with("remove store/Door/2023-11-11/."));
    EXPECT_EQ(ledger.checkpoints.size(), 1U);
    carry_out();
    EXPECT_TRUE(ledger.checkpoints.empty());
}

TEST_F(RunPlanCleanupTest, PassIsToldOnceAlthoughTheMemoryFailsBehindIt) {
    ASSERT_EQ(next(), "days /rec/door 2024-03-01..2024-03-31");
    carry_out();
    ASSERT_EQ(next(), "days /rec/yard 2024-03-01..2024-03-31");
    carry_out();
    const int leftovers = ledger.calls + 2;
    ledger.refuses = [leftovers](int call) { return call == leftovers; };
    EXPECT_THROW(plan().settle(), standalone::DatabaseError);
    EXPECT_EQ(rest(), Texts{"room"});
    EXPECT_TRUE(plan().is_over());
    EXPECT_EQ(notes(RETENTION_PASS), Texts{"0 files of days before 2024-03-01 removed"});
}

}  // namespace
