// Which copies the store has read back, and what it remembers of those that are spoilt.
#include <gtest/gtest.h>

#include <set>

#include "services/backup_daemon/memory/copy_store.h"
#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;

using Paths = std::set<std::string>;

class CopySampleTest : public MemoryTest {
protected:
    static void record(CopyStore& store, const std::string& folder, int number = 1) {
        const std::string path = folder + std::to_string(number) + ".mp4";
        const std::string day = folder.substr(folder.find('/') + 1, 10);
        store.record({.path = path, .day = day, .size = 5, .modified_ns = 6, .sha256 = "ab"});
    }

    Paths next() {
        Paths paths;
        for (const CopiedFile& copy : store_.sample().copies) paths.insert(copy.path);
        return paths;
    }

    bool is_doubted(const std::string& folder, const std::string& name) {
        const CopiedFile copy = store_.copied_in(folder).at(folder + name);
        EXPECT_EQ(copy.modified_ns, 6) << "the recording's time stays";
        return copy.doubted;
    }

    /// What is known of copies that differ, by task.
    Paths differing() {
        standalone::Statement row = memory_.runs.prepare(
            "SELECT taskID || ': run ' || run || ', ' || copies || ' copies, ' || path "
            "FROM copies_differ WHERE since > 0");
        Paths words;
        while (row.step()) words.insert(row.text(0));
        return words;
    }

    CopyStore store_{memory_.runs, "1", "a"};
    CopyStore other_task_{memory_.runs, "2", "a"};
    CopyStore other_place_{memory_.runs, "1", "b"};
};

TEST_F(CopySampleTest, EachCameraAndDayIsSampledOnceTheOldestDayFirst) {
    for (const char* folder :
         {"Yard/2024-03-01/", "Door/2024-03-02/", "Door/2024-03-02/alarm/", "Door/2024-03-03/"})
        record(store_, folder);
    std::vector<std::string> folders;
    for (Sample sample = store_.sample(); !sample.folder.empty(); sample = store_.sample()) {
        ASSERT_EQ(sample.copies.size(), 1U);
        EXPECT_TRUE(sample.copies[0].path.starts_with(sample.folder));
        EXPECT_EQ(sample.copies[0].sha256, "ab");
        EXPECT_EQ(store_.sample().folder, sample.folder) << "until it was read";
        folders.push_back(sample.folder);
        store_.end_sample(sample.folder);
    }
    EXPECT_EQ(folders, (std::vector<std::string>{"Yard/2024-03-01/", "Door/2024-03-02/",
                                                 "Door/2024-03-03/"}));
    EXPECT_TRUE(store_.sample().copies.empty());
}

TEST_F(CopySampleTest, OneOfAHundredIsChosenAtRandomAndOneOfTheRest) {
    for (const auto& [files, expected] : {std::pair(100, 1U), std::pair(101, 2U)}) {
        for (int number = 0; number < files; ++number) record(store_, "Door/2024-03-01/", number);
        Paths chosen;
        for (int times = 0; times < 40; ++times) {
            const Paths paths = next();
            EXPECT_EQ(paths.size(), expected);
            chosen.insert(paths.begin(), paths.end());
        }
        EXPECT_GT(chosen.size(), 5U);
    }
}

TEST_F(CopySampleTest, OnlyTheTasksOwnCopiesThatAreThereAreAskedFor) {
    record(other_task_, "Door/2024-03-01/", 1);
    record(other_place_, "Door/2024-03-01/", 2);
    record(store_, "Door/2024-03-01/", 3);
    store_.mark_removed("Door/2024-03-01/3.mp4");
    EXPECT_EQ(next(), Paths{});
    record(store_, "Door/2024-03-01/", 4);
    EXPECT_EQ(next(), Paths{"Door/2024-03-01/4.mp4"});
    store_.end_sample("Door/2024-03-01/");
    EXPECT_FALSE(other_task_.sample().copies.empty());
    EXPECT_FALSE(other_place_.sample().copies.empty());
}

TEST_F(CopySampleTest, WhatIsRecordedAfterASampleIsAskedForByTheNext) {
    record(store_, "Door/2024-03-01/", 1);
    store_.end_sample("Door/2024-03-01/");
    record(store_, "Door/2024-03-01/", 2);
    EXPECT_EQ(next(), Paths{"Door/2024-03-01/2.mp4"});
    store_.end_sample("Door/2024-03-01/");
    record(store_, "Door/2024-03-01/", 1);
    EXPECT_EQ(next(), Paths{"Door/2024-03-01/1.mp4"}) << "it was copied once more";
}

TEST_F(CopySampleTest, CopiesOfAVersionWithoutSamplesAreNotAskedFor) {
    memory_.runs.run(
        "INSERT INTO copied_file (destination, path, taskID, day, size, modified_ns, sha256, "
        "side_file, removed) VALUES ('a', 'Door/2024-03-01/1.mp4', 1, '2024-03-01', 5, 6, '', 0, "
        "0)");
    EXPECT_EQ(next(), Paths{});
}

TEST_F(CopySampleTest, DoubtIsOfAllCopiesOfTheCamerasDayAndOfNoOthers) {
    for (const char* folder : {"Door/2024-03-01/", "Door/2024-03-02/", "Yard/2024-03-01/"})
        for (const int number : {1, 2}) record(store_, folder, number);
    record(store_, "Door/2024-03-01/alarm/", 3);
    store_.doubt("Door/2024-03-01/1.mp4", "Door/2024-03-01/");
    for (const char* name : {"1.mp4", "2.mp4", "alarm/3.mp4"})
        EXPECT_TRUE(is_doubted("Door/2024-03-01/", name)) << name;
    EXPECT_FALSE(is_doubted("Door/2024-03-02/", "1.mp4"));
    EXPECT_FALSE(is_doubted("Yard/2024-03-01/", "2.mp4"));
}

TEST_F(CopySampleTest, CopyIsSpoiltUntilItIsRecordedAnew) {
    for (const int number : {1, 2, 3}) record(store_, "Door/2024-03-01/", number);
    store_.doubt("Door/2024-03-01/1.mp4", "Door/2024-03-01/");
    store_.doubt("Door/2024-03-01/2.mp4", "Door/2024-03-01/");
    store_.end_sample("Door/2024-03-01/");
    EXPECT_EQ(store_.spoilt(), (Paths{"Door/2024-03-01/1.mp4", "Door/2024-03-01/2.mp4"}));
    EXPECT_EQ(next(), Paths{}) << "it is told once";
    EXPECT_EQ(other_task_.spoilt(), Paths{});
    EXPECT_EQ(other_place_.spoilt(), Paths{});
    record(store_, "Door/2024-03-01/", 1);
    EXPECT_FALSE(is_doubted("Door/2024-03-01/", "1.mp4"));
    EXPECT_EQ(store_.spoilt(), Paths{"Door/2024-03-01/2.mp4"});
    store_.accept_spoilt();
    EXPECT_EQ(store_.spoilt(), Paths{});
    EXPECT_TRUE(is_doubted("Door/2024-03-01/", "2.mp4")) << "it is compared when it can be";
}

TEST_F(CopySampleTest, ThatCopiesDifferIsKnownWhenTheyAreMadeAnewAndOfEachTask) {
    memory_.runs.run("INSERT INTO task_health (taskID, last_number) VALUES (1, 5)");
    for (const int number : {1, 2}) {
        record(store_, "Door/2024-03-01/", number);
        store_.doubt("Door/2024-03-01/" + std::to_string(number) + ".mp4", "Door/2024-03-01/");
        record(store_, "Door/2024-03-01/", number);
    }
    record(other_task_, "Yard/2024-03-01/");
    other_task_.doubt("Yard/2024-03-01/1.mp4", "Yard/2024-03-01/");
    EXPECT_EQ(differing(), (Paths{"1: run 5, 2 copies, Door/2024-03-01/2.mp4",
                                  "2: run 0, 1 copies, Yard/2024-03-01/1.mp4"}));
}

TEST_F(CopySampleTest, CopiesThatDifferBehindASuccessAreCountedAnew) {
    memory_.runs.run("INSERT INTO task_health (taskID, last_number) VALUES (1, 5)");
    record(store_, "Door/2024-03-01/");
    const auto doubt = [&] { store_.doubt("Door/2024-03-01/1.mp4", "Door/2024-03-01/"); };
    doubt();
    memory_.runs.run("UPDATE task_health SET last_number = 6, last_success = 5");
    doubt();
    EXPECT_EQ(differing(), Paths{"1: run 6, 2 copies, Door/2024-03-01/1.mp4"})
        << "the run that has found them does not end it";
    memory_.runs.run("UPDATE task_health SET last_number = 8, last_success = 7");
    doubt();
    EXPECT_EQ(differing(), Paths{"1: run 8, 1 copies, Door/2024-03-01/1.mp4"});
}

}  // namespace
