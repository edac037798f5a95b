// How a day is listed: its recordings here, and what the share says that it has of them.
#include "services/backup_daemon/run/day_errand.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "services/backup_daemon/lane/packet_socket.h"
#include "tests/services/backup_daemon/lane/file_answers.h"
#include "tests/support/temporary_state.h"

using namespace services;

namespace {

using Texts = std::vector<std::string>;

constexpr char DAY[] = "2024-03-01";

class DayErrandTest : public testing::Test {
protected:
    void record(const std::string& name, std::size_t size) {
        const std::string path = folder.path() + "/" + DAY + "/" + name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << std::string(size, 'x');
    }

    void record_both_kinds() {
        record("01-00-00.mp4", 5);
        record("02-00-00.mp4", 6);
        record("alarm/01-00-00.mp4", 7);
        record("alarm/03-00-00.mp4", 8);
    }

    TemporaryFolder folder;
    ListDay order{.recordings = folder.path(),
                  .day = DAY,
                  .normal = true,
                  .alarm = true,
                  .remote = "Door/2024-03-01",
                  .ask_share = true};
};

/// What the process is asked for, as "folder: name name".
std::string question_of(const ErrandStep& step) {
    const auto& order = std::get<AskFiles>(step.ask.value());
    std::string text = order.folder + ":";
    for (const std::string& name : order.names) text += " " + name;
    return text;
}

/// What the run hears of the day, as "name kind size remote_size" each.
Texts entries_of(const ErrandStep& step) {
    EXPECT_TRUE(step.over && !step.ask);
    EXPECT_EQ(step.tell.size(), 2U);
    EXPECT_TRUE(std::holds_alternative<Done>(step.tell.at(1)));
    Texts texts;
    for (const DayEntry& entry : std::get<Entries>(step.tell.at(0)).entries)
        texts.push_back(entry.name + (entry.alarm ? " alarm " : " normal ") +
                        std::to_string(entry.size) + " " + std::to_string(entry.remote.size));
    return texts;
}

TEST_F(DayErrandTest, DayWithMoreRecordingsThanItMayHaveIsNotListed) {
    record_both_kinds();
    EXPECT_TRUE(DayErrand(order, 4).begin().ask);
    const ErrandStep step = DayErrand(order, 3).begin();
    EXPECT_TRUE(step.over && !step.ask);
    const auto& failed = std::get<Failed>(step.tell.at(0));
    EXPECT_EQ(failed.kind, FailureKind::source);
    EXPECT_EQ(failed.text, folder.path() + "/" + DAY + ": too many recordings of a day");
}

TEST_F(DayErrandTest, OfADayWithoutRecordingsItTellsWhichDiskItsFolderIsOn) {
    const auto disk = [this] {
        const ErrandStep step = DayErrand(order).begin();
        EXPECT_EQ(entries_of(step), Texts{});
        return std::get<Entries>(step.tell.at(0)).disk;
    };
    const std::string day = folder.path() + "/" + DAY;
    EXPECT_EQ(disk(), "") << "it is not there";
    std::filesystem::create_directories(day + "/alarm");
    const ErrandStep days = errand_of(ListDays{folder.path(), DAY, DAY})->begin();
    EXPECT_EQ(disk(), std::get<Days>(days.tell.at(0)).disk);
    EXPECT_NE(disk(), "");
    std::filesystem::rename(day, folder.path() + "/other");
    std::filesystem::create_directory_symlink("other", day);
    EXPECT_EQ(disk(), "") << "a link";
}

TEST_F(DayErrandTest, OfADayWithRecordingsItTellsNoDisk) {
    record("01-00-00.mp4", 5);
    order.ask_share = false;
    EXPECT_EQ(std::get<Entries>(DayErrand(order).begin().tell.at(0)).disk, "");
}

TEST_F(DayErrandTest, ListsADayWithWhatTheShareHasOfIt) {
    record_both_kinds();
    DayErrand errand(order);
    const ErrandStep first = errand.begin();
    EXPECT_EQ(question_of(first), "Door/2024-03-01: 01-00-00.mp4 02-00-00.mp4");
    EXPECT_FALSE(first.over);
    ASSERT_EQ(first.tell.size(), 1U);
    EXPECT_TRUE(std::holds_alternative<At>(first.tell[0])) << "a sign of life";
    const auto second = errand.hear(files_of({4, -1}));
    ASSERT_TRUE(second);
    EXPECT_EQ(question_of(*second), "Door/2024-03-01/alarm: 01-00-00.mp4 03-00-00.mp4");
    ASSERT_EQ(second->tell.size(), 1U);
    EXPECT_TRUE(std::holds_alternative<At>(second->tell[0])) << "a sign of life";
    const auto last = errand.hear(files_of({-1, 8}));
    ASSERT_TRUE(last);
    EXPECT_EQ(entries_of(*last), (Texts{"01-00-00.mp4 normal 5 4", "02-00-00.mp4 normal 6 -1",
                                        "01-00-00.mp4 alarm 7 -1", "03-00-00.mp4 alarm 8 8"}));
}

TEST_F(DayErrandTest, TellsTheLastWriteToTheNanosecond) {
    record("01-00-00.mp4", 5);
    const timespec times[2] = {{.tv_sec = 1, .tv_nsec = 2},
                               {.tv_sec = 1'709'297'110, .tv_nsec = 123'456'789}};
    const std::string path = folder.path() + "/" + DAY + "/01-00-00.mp4";
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    order.ask_share = false;
    const ErrandStep step = DayErrand(order).begin();
    EXPECT_EQ(std::get<Entries>(step.tell.at(0)).entries.at(0).modified_ns,
              1'709'297'110'123'456'789);
}

TEST_F(DayErrandTest, AsksForWhatHasASafeNameOnTheShare) {
    record("01-00-00.a:b", 5);
    DayErrand errand(order);
    EXPECT_EQ(question_of(errand.begin()), "Door/2024-03-01: 01-00-00.a_b");
    EXPECT_EQ(entries_of(*errand.hear(files_of({5}))), Texts{"01-00-00.a:b normal 5 5"});
}

TEST_F(DayErrandTest, ListsAndAsksForTheKindsThatAreWanted) {
    record_both_kinds();
    ListDay normal = order;
    normal.alarm = false;
    DayErrand one(normal);
    EXPECT_EQ(question_of(one.begin()), "Door/2024-03-01: 01-00-00.mp4 02-00-00.mp4");
    EXPECT_EQ(entries_of(*one.hear(files_of({-1, 9}))),
              (Texts{"01-00-00.mp4 normal 5 -1", "02-00-00.mp4 normal 6 9"}));
    ListDay alarm = order;
    alarm.normal = false;
    DayErrand other(alarm);
    EXPECT_EQ(question_of(other.begin()), "Door/2024-03-01/alarm: 01-00-00.mp4 03-00-00.mp4");
    EXPECT_EQ(entries_of(*other.hear(files_of({1, 2}))),
              (Texts{"01-00-00.mp4 alarm 7 1", "03-00-00.mp4 alarm 8 2"}));
}

TEST_F(DayErrandTest, AsksTheShareOnlyWhenItIsTold) {
    record_both_kinds();
    order.ask_share = false;
    EXPECT_EQ(entries_of(DayErrand(order).begin()),
              (Texts{"01-00-00.mp4 normal 5 -1", "02-00-00.mp4 normal 6 -1",
                     "01-00-00.mp4 alarm 7 -1", "03-00-00.mp4 alarm 8 -1"}));
}

TEST_F(DayErrandTest, DayThatHasGoneSinceItWasFoundHasNoRecordings) {
    std::filesystem::create_directories(folder.path() + "/2024-03-02");
    EXPECT_TRUE(entries_of(DayErrand(order).begin()).empty());
}

TEST_F(DayErrandTest, DayOfAChannelThatCannotBeReadFailsAndNamesTheFolder) {
    order.recordings += "/unmounted";
    const ErrandStep step = DayErrand(order).begin();
    EXPECT_TRUE(step.over && !step.ask);
    const auto& failed = std::get<Failed>(step.tell.at(0));
    EXPECT_EQ(failed.kind, FailureKind::source);
    EXPECT_EQ(failed.text, order.recordings + " cannot be read: No such file or directory");
}

TEST_F(DayErrandTest, DayWithoutRecordingsIsDoneToo) {
    EXPECT_TRUE(entries_of(DayErrand(order).begin()).empty());
}

TEST_F(DayErrandTest, AnswerThatIsNotToTheQuestionDoesNotFit) {
    record_both_kinds();
    const WorkerReport others[] = {Ready(),           files_of({4}), files_of({4, 5, 6}),
                                   files_of({4, -2}), Files(),       At{0},
                                   Noted{0, ""},      Whole(),       Removed()};
    for (const WorkerReport& report : others) {
        DayErrand errand(order);
        errand.begin();
        EXPECT_FALSE(errand.hear(report)) << report.index();
        EXPECT_TRUE(errand.hear(files_of({4, 5})));
        EXPECT_FALSE(errand.hear(report)) << report.index();
        EXPECT_TRUE(errand.hear(files_of({4, 5}))->over);
        EXPECT_FALSE(errand.hear(files_of({4, 5}))) << "nothing is asked any more";
    }
}

std::string name_of(int second) {
    const auto two = [](int number) {
        return std::string(number < 10 ? "0" : "") + std::to_string(number);
    };
    return two(second / 3600) + "-" + two(second / 60 % 60) + "-" + two(second % 60) + ".mp4";
}

TEST_F(DayErrandTest, DayOfVeryManyFilesIsAskedForInPartsThatFitAPacket) {
    constexpr int FILES = 20'000;
    for (int second = 0; second < FILES; ++second) record(name_of(second), 0);
    record("alarm/00-00-00." + std::string(200, 'x'), 0);
    DayErrand errand(order);
    ErrandStep step = errand.begin();
    long long asked = 0;
    int questions = 0;
    while (step.ask) {
        const auto order = std::get<AskFiles>(*step.ask);
        ASSERT_LE(pack(WorkerOrder(order)).size(), LARGEST_PACKET);
        Files answer;
        for (std::size_t name = 0; name < order.names.size(); ++name)
            answer.files.push_back({.size = asked++});
        ++questions;
        auto next = errand.hear(answer);
        ASSERT_TRUE(next);
        step = std::move(*next);
    }
    EXPECT_GE(questions, 3);
    const auto& entries = std::get<Entries>(step.tell.at(0)).entries;
    ASSERT_EQ(entries.size(), FILES + 1U);
    for (std::size_t entry = 0; entry < entries.size(); ++entry)
        ASSERT_EQ(entries[entry].remote.size, static_cast<long long>(entry));
    for (int second = 0; second < FILES; ++second)
        ASSERT_EQ(entries[static_cast<std::size_t>(second)].name, name_of(second));
}

}  // namespace
