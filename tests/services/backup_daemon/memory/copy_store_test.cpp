// What the store remembers of copies: whose, where, which days, and how it forgets.
#include "services/backup_daemon/memory/copy_store.h"

#include "tests/services/backup_daemon/memory/memory_test.h"
#include "tests/services/backup_daemon/memory/query_plan.h"

namespace {

using namespace services;

CopiedFile file_of(const std::string& path, const std::string& day) {
    return {.path = path,
            .day = day,
            .size = 5'000'000'000,
            .modified_ns = 1'709'297'110'123'456'789,
            .sha256 = "ab",
            .side_file = true,
            .removed = false,
            .share_modified_ns = 1'709'297'120'000'000'000};
}

std::vector<std::string> paths_of(const std::vector<CopiedFile>& files) {
    std::vector<std::string> paths;
    for (const CopiedFile& file : files) paths.push_back(file.path);
    return paths;
}

using Paths = std::vector<std::string>;

class CopyStoreTest : public MemoryTest {
protected:
    static void record(CopyStore& store, const std::string& day, const std::string& name = "1") {
        store.record(file_of("Door/" + day + "/" + name + ".mp4", day));
    }

    CopyStore store_{memory_.runs, "1", "//server:445/share/a"};
    CopyStore other_task_{memory_.runs, "2", "//server:445/share/a"};
    CopyStore other_place_{memory_.runs, "1", "//server:445/share/b"};
};

TEST_F(CopyStoreTest, CopyComesBackAsItWasRecorded) {
    record(store_, "2024-03-01");
    const CopiedFile found = store_.copied_in("Door/2024-03-01/").at("Door/2024-03-01/1.mp4");
    EXPECT_EQ(found.path, "Door/2024-03-01/1.mp4");
    EXPECT_EQ(found.day, "2024-03-01");
    EXPECT_EQ(found.size, 5'000'000'000);
    EXPECT_EQ(found.modified_ns, 1'709'297'110'123'456'789);
    EXPECT_EQ(found.sha256, "ab");
    EXPECT_TRUE(found.side_file);
    EXPECT_FALSE(found.removed);
    EXPECT_EQ(found.share_modified_ns, 1'709'297'120'000'000'000);
}

TEST_F(CopyStoreTest, TimeThatTheShareDidNotTellStaysUnknown) {
    CopiedFile file = file_of("Door/2024-03-01/1.mp4", "2024-03-01");
    file.share_modified_ns = {};
    store_.record(file);
    EXPECT_FALSE(store_.copied_in("Door/2024-03-01/").at(file.path).share_modified_ns);
    EXPECT_EQ(count("copied_file WHERE share_modified_ns IS NULL"), 1);
}

TEST_F(CopyStoreTest, TellsTheCopiesOfOneFolderAndOfNoneThatIsNamedAlike) {
    for (const char* path :
         {"Front/2024-03-01/1.mp4", "Front/2024-03-01/alarm/2.mp4", "Front/2024-03-010/3.mp4",
          "Front/2024-03-02/4.mp4", "Front door/2024-03-01/5.mp4", "front/2024-03-01/6.mp4",
          "Front/2024-03-01", "A Front/2024-03-01/7.mp4"})
        store_.record(file_of(path, "2024-03-01"));
    const auto found = store_.copied_in("Front/2024-03-01/");
    ASSERT_EQ(found.size(), 2U);
    EXPECT_TRUE(found.contains("Front/2024-03-01/1.mp4"));
    EXPECT_TRUE(found.contains("Front/2024-03-01/alarm/2.mp4"));
    EXPECT_EQ(store_.copied_in("Front door/2024-03-01/").size(), 1U);
}

TEST_F(CopyStoreTest, TakesNamesAsTheyAreWithNoCharacterThatStandsForOthers) {
    for (const char* folder : {"100%/", "1000/", "a_b/", "axb/", "T\u00fcr/", "Tur/", "it's/"})
        store_.record(file_of(std::string(folder) + "1.mp4", "2024-03-01"));
    for (const char* folder : {"100%/", "a_b/", "T\u00fcr/", "it's/"}) {
        const auto found = store_.copied_in(folder);
        ASSERT_EQ(found.size(), 1U) << folder;
        EXPECT_EQ(found.begin()->first, std::string(folder) + "1.mp4");
    }
}

TEST_F(CopyStoreTest, CopiesAreTheDestinationsWhicheverTaskMadeThem) {
    record(other_task_, "2024-03-01");
    EXPECT_EQ(store_.copied_in("Door/2024-03-01/").size(), 1U);
    EXPECT_TRUE(other_place_.copied_in("Door/2024-03-01/").empty());
}

TEST_F(CopyStoreTest, NewerRecordOfAPathTakesThePlaceOfTheOlder) {
    record(store_, "2024-03-01");
    CopiedFile newer = file_of("Door/2024-03-01/1.mp4", "2024-03-01");
    newer.size = 7;
    other_task_.record(newer);
    EXPECT_EQ(store_.copied_in("Door/2024-03-01/").begin()->second.size, 7);
    EXPECT_EQ(store_.oldest_day(), "") << "it is the other task's now";
    EXPECT_EQ(other_task_.oldest_day(), "2024-03-01");
    EXPECT_EQ(count("copied_file"), 1);
}

TEST_F(CopyStoreTest, OldestDayIsOfTheTasksOwnCopiesOnTheDestination) {
    EXPECT_EQ(store_.oldest_day(), "");
    record(store_, "2024-03-03");
    record(store_, "2024-03-02");
    record(other_task_, "2024-03-01");
    record(other_place_, "2024-02-01");
    EXPECT_EQ(store_.oldest_day(), "2024-03-02");
    store_.mark_removed("Door/2024-03-02/1.mp4");
    EXPECT_EQ(store_.oldest_day(), "2024-03-03");
}

TEST_F(CopyStoreTest, OlderCopiesAreTheTasksOwnOnTheDestinationOldestDayFirst) {
    for (const char* day : {"2024-03-03", "2024-03-01", "2024-03-04", "2024-03-02"})
        record(store_, day);
    record(other_task_, "2024-02-28");
    record(other_place_, "2024-02-27");
    store_.mark_removed("Door/2024-03-01/1.mp4");
    EXPECT_EQ(paths_of(store_.older_than("2024-03-04", 10, {})),
              (Paths{"Door/2024-03-02/1.mp4", "Door/2024-03-03/1.mp4"}));
    EXPECT_EQ(paths_of(store_.older_than("2024-03-04", 1, {})), Paths{"Door/2024-03-02/1.mp4"});
    EXPECT_TRUE(store_.older_than("2024-03-02", 10, {}).empty());
    EXPECT_TRUE(store_.older_than("2024-03-04", 0, {}).empty());
}

TEST_F(CopyStoreTest, OlderCopiesComeInStepsOfTheLimitUntilNoneIsLeft) {
    for (int number = 0; number < 25; ++number)
        record(store_, "2024-03-01", std::to_string(number));
    std::size_t removed = 0;
    for (auto step = store_.older_than("2024-03-02", 10, {}); !step.empty();
         step = store_.older_than("2024-03-02", 10, {})) {
        EXPECT_LE(step.size(), 10U);
        removed += step.size();
        for (const CopiedFile& file : step) store_.forget(file.path);
    }
    EXPECT_EQ(removed, 25U);
    EXPECT_EQ(count("copied_file"), 0);
}

TEST_F(CopyStoreTest, CopyThatMadeRoomIsRememberedAndAnOldOneForgotten) {
    record(store_, "2024-03-01");
    record(store_, "2024-03-02");
    record(other_place_, "2024-03-01");
    record(other_place_, "2024-03-02");
    store_.mark_removed("Door/2024-03-01/1.mp4");
    store_.forget("Door/2024-03-02/1.mp4");
    EXPECT_TRUE(store_.copied_in("Door/2024-03-01/").begin()->second.removed);
    EXPECT_TRUE(store_.copied_in("Door/2024-03-02/").empty());
    EXPECT_FALSE(other_place_.copied_in("Door/2024-03-01/").begin()->second.removed);
    EXPECT_EQ(other_place_.copied_in("Door/2024-03-02/").size(), 1U);
}

TEST_F(CopyStoreTest, CopyThatIsRecordedAgainIsThereAgain) {
    record(store_, "2024-03-01");
    store_.mark_removed("Door/2024-03-01/1.mp4");
    record(store_, "2024-03-01");
    EXPECT_EQ(store_.oldest_day(), "2024-03-01");
}

TEST_F(CopyStoreTest, NewestDayOfEachCameraIsToldAndCanBeLeftOut) {
    record(store_, "2024-03-01");
    record(store_, "2024-03-02");
    store_.record(file_of("Yard/2024-02-01/1.mp4", "2024-02-01"));
    store_.record(file_of("Yard/2024-02-01/alarm/2.mp4", "2024-02-01"));
    record(other_task_, "2024-03-03");
    record(other_place_, "2024-03-04");
    const auto newest = store_.newest_days("2025-01-01");
    EXPECT_EQ(newest, (std::set<std::string>{"Door/2024-03-02", "Yard/2024-02-01"}));
    EXPECT_EQ(paths_of(store_.older_than("2025-01-01", 10, newest)),
              Paths{"Door/2024-03-01/1.mp4"});
    EXPECT_EQ(store_.older_than("2025-01-01", 10, {}).size(), 4U);
    EXPECT_EQ(paths_of(store_.older_than("2025-01-01", 1, {"Yard/2024-02-01"})),
              Paths{"Door/2024-03-01/1.mp4"});
}

TEST_F(CopyStoreTest, NewestDayIsToldOfCamerasThatHaveNoCopyFromTheDayOn) {
    record(store_, "2024-03-01");
    record(store_, "2024-03-02");
    record(store_, "2024-03-05");
    store_.record(file_of("Door 2/2024-03-01/1.mp4", "2024-03-01"));
    store_.record(file_of("Yard/2024-02-01/1.mp4", "2024-02-01"));
    store_.record(file_of("Yard/2024-02-02/1.mp4", "2024-02-02"));
    store_.record(file_of("Hall/2024-02-01/1.mp4", "2024-02-01"));
    store_.record(file_of("Hall/2024-03-09/1.mp4", "2024-03-09"));
    store_.mark_removed("Hall/2024-03-09/1.mp4");
    other_task_.record(file_of("Yard/2024-03-09/1.mp4", "2024-03-09"));
    other_place_.record(file_of("Yard/2024-03-09/1.mp4", "2024-03-09"));
    using Days = std::set<std::string>;
    EXPECT_EQ(store_.newest_days("2024-03-05"),
              (Days{"Door 2/2024-03-01", "Hall/2024-02-01", "Yard/2024-02-02"}));
    EXPECT_EQ(store_.newest_days("2024-03-06"),
              (Days{"Door 2/2024-03-01", "Door/2024-03-05", "Hall/2024-02-01", "Yard/2024-02-02"}));
    EXPECT_EQ(store_.newest_days("2024-02-02"), Days{"Hall/2024-02-01"}) << "Yard has a newer one";
    EXPECT_EQ(store_.newest_days("2024-01-01"), Days{});
}

TEST_F(CopyStoreTest, NewestDaysAreFoundWithoutReadingAllCopies) {
    record(store_, "2024-03-01");
    const std::string plan = plan_of(memory_.runs, [this] { store_.newest_days("2024-03-05"); });
    EXPECT_NE(plan.find("copied_by_day (taskID=? AND destination=? AND removed=? AND day<?)"),
              std::string::npos)
        << plan;
    EXPECT_NE(
        plan.find("SEARCH copied_file USING PRIMARY KEY (destination=? AND path>? AND path<?)"),
        std::string::npos)
        << plan;
}

TEST_F(CopyStoreTest, AmountOfOlderCopiesIsCountedOldestDayFirstUntilItIsEnough) {
    constexpr long long SIZE = 5'000'000'000;
    for (const char* day : {"2024-03-03", "2024-03-01", "2024-03-02"}) record(store_, day);
    const auto amount = [&](const std::string& day, long long enough) {
        const FileAmount found = store_.amount_older_than(day, {"Door/2024-03-01"}, enough);
        EXPECT_EQ(found.bytes, found.files * SIZE);
        return found.files;
    };
    EXPECT_EQ(amount("2024-03-04", 100 * SIZE), 2);
    EXPECT_EQ(amount("2024-03-04", SIZE + 1), 2);
    EXPECT_EQ(amount("2024-03-04", SIZE), 1);
    EXPECT_EQ(amount("2024-03-04", 0), 0);
    EXPECT_EQ(amount("2024-03-03", 100 * SIZE), 1);
    EXPECT_EQ(amount("2024-03-02", 100 * SIZE), 0);
}

TEST_F(CopyStoreTest, CopyWhoseRemovalIsBegunCountsAsGoneUntilItIsDone) {
    record(store_, "2024-03-01");
    record(store_, "2024-03-02");
    record(other_task_, "2024-03-03");
    store_.begin_removal(store_.older_than("2024-03-02", 10, {}));
    EXPECT_EQ(store_.oldest_day(), "2024-03-02");
    EXPECT_TRUE(store_.copied_in("Door/2024-03-01/").begin()->second.removed);
    EXPECT_EQ(paths_of(store_.half_removed(10)), Paths{"Door/2024-03-01/1.mp4"});
    EXPECT_TRUE(store_.half_removed(0).empty());
    EXPECT_TRUE(other_task_.half_removed(10).empty());
    store_.mark_removed("Door/2024-03-01/1.mp4");
    EXPECT_TRUE(store_.half_removed(10).empty());
    EXPECT_TRUE(store_.copied_in("Door/2024-03-01/").begin()->second.removed);
}

TEST_F(CopyStoreTest, DateIsTheTasksOwnAndComesBackAsItWasKept) {
    EXPECT_FALSE(store_.date());
    store_.set_date({.trusted = "2024-03-01"});
    EXPECT_EQ(store_.date(), TaskDate{.trusted = "2024-03-01"});
    store_.set_date({"2024-03-01", "2026-01-01", "2026-01-02"});
    EXPECT_EQ(store_.date(), (TaskDate{"2024-03-01", "2026-01-01", "2026-01-02"}));
    EXPECT_EQ(other_place_.date(), store_.date());
    EXPECT_FALSE(other_task_.date());
    EXPECT_EQ(count("task_date"), 1);
}

TEST_F(CopyStoreTest, NewerCheckpointTakesThePlaceOfTheOlder) {
    EXPECT_FALSE(store_.checkpoint("p"));
    store_.save({"p", "t", 0, ""});
    store_.save({"p", "u", 8'000'000'000, "cd"});
    const auto found = store_.checkpoint("p");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->path, "p");
    EXPECT_EQ(found->temporary, "u");
    EXPECT_EQ(found->offset, 8'000'000'000);
    EXPECT_EQ(found->sha256, "cd");
    EXPECT_EQ(store_.checkpoints().size(), 1U);
}

TEST_F(CopyStoreTest, CheckpointsAreOfOneTaskAndOneDestination) {
    store_.save({"p", "t", 1, ""});
    store_.save({"q", "t", 2, ""});
    other_task_.save({"p", "t", 3, ""});
    other_place_.save({"p", "t", 4, ""});
    EXPECT_EQ(store_.checkpoint("p")->offset, 1);
    EXPECT_EQ(other_task_.checkpoint("p")->offset, 3);
    EXPECT_EQ(other_place_.checkpoint("p")->offset, 4);
    EXPECT_EQ(store_.checkpoints().size(), 2U);
    store_.drop_checkpoint("p");
    store_.drop_checkpoint("p");
    EXPECT_FALSE(store_.checkpoint("p"));
    EXPECT_TRUE(store_.checkpoint("q"));
    EXPECT_TRUE(other_task_.checkpoint("p"));
    EXPECT_TRUE(other_place_.checkpoint("p"));
}

TEST_F(CopyStoreTest, RecordingACopyEndsItsCheckpointAlone) {
    store_.save({"Door/2024-03-01/1.mp4", "t", 8, "cd"});
    store_.save({"Door/2024-03-01/2.mp4", "t", 8, "cd"});
    other_task_.save({"Door/2024-03-01/1.mp4", "t", 8, "cd"});
    record(store_, "2024-03-01");
    EXPECT_FALSE(store_.checkpoint("Door/2024-03-01/1.mp4"));
    EXPECT_TRUE(store_.checkpoint("Door/2024-03-01/2.mp4"));
    EXPECT_TRUE(other_task_.checkpoint("Door/2024-03-01/1.mp4"));
}

TEST_F(CopyStoreTest, CopyIsNotRecordedWhenItsCheckpointCannotBeDropped) {
    store_.save({"Door/2024-03-01/1.mp4", "t", 8, "cd"});
    memory_.runs.run(
        "CREATE TEMP TRIGGER refuse BEFORE DELETE ON checkpoint "
        "BEGIN SELECT RAISE(ABORT, 'no'); END");
    EXPECT_THROW(record(store_, "2024-03-01"), standalone::DatabaseError);
    EXPECT_EQ(count("copied_file"), 0);
    EXPECT_EQ(count("checkpoint"), 1);
    memory_.runs.run("DROP TRIGGER refuse");
    record(store_, "2024-03-01");
    EXPECT_EQ(count("copied_file"), 1);
    EXPECT_EQ(count("checkpoint"), 0);
}

TEST_F(CopyStoreTest, CheckpointStaysWhenItsCopyCannotBeRecorded) {
    store_.save({"Door/2024-03-01/1.mp4", "t", 8, "cd"});
    memory_.runs.run(
        "CREATE TEMP TRIGGER refuse BEFORE INSERT ON copied_file "
        "BEGIN SELECT RAISE(ABORT, 'no'); END");
    EXPECT_THROW(record(store_, "2024-03-01"), standalone::DatabaseError);
    EXPECT_EQ(count("checkpoint"), 1);
}

}  // namespace
