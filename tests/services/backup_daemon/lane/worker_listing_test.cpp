// How a copying process lists days and their recordings, and what it asks the share for that.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "tests/services/backup_daemon/lane/worker_fixture.h"

using namespace services;

namespace {

constexpr char DAY[] = "2024-03-01";

class WorkerListingTest : public WorkerFixture {
protected:
    void record(const std::string& name, long long size) {
        const std::string path = folder.path() + "/" + DAY + "/" + name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << content_of(size);
    }

    ListDay list_day() const {
        return {.recordings = folder.path(),
                .day = DAY,
                .normal = true,
                .alarm = true,
                .remote = "Door/2024-03-01",
                .ask_share = true};
    }
};

/// An entry as "name alarm size remote_size".
Texts entries_of(const Report& report) {
    Texts texts;
    for (const DayEntry& entry : std::get<Entries>(report).entries)
        texts.push_back(entry.name + (entry.alarm ? " alarm " : " normal ") +
                        std::to_string(entry.size) + " " + std::to_string(entry.remote_size));
    return texts;
}

TEST_F(WorkerListingTest, ListsTheDaysOfAChannel) {
    for (const char* day : {"2024-02-29", "2024-03-01", "2024-03-02", "2024-03-03"})
        std::filesystem::create_directories(folder.path() + "/" + day);
    const Reports reports = work({ListDays{folder.path(), "2024-03-01", "2024-03-02"}});
    ASSERT_EQ(names_of(reports), (Texts{"ready", "days"}));
    EXPECT_EQ(std::get<Days>(reports[1]).names, (Texts{"2024-03-01", "2024-03-02"}));
    EXPECT_EQ(server.calls, Texts{"connect"});
}

TEST_F(WorkerListingTest, ListsADayWithWhatTheShareHasOfIt) {
    record("01-00-00.mp4", 5);
    record("02-00-00.mp4", 6);
    record("alarm/01-00-00.mp4", 7);
    record("alarm/03-00-00.mp4", 8);
    server.put("Door/2024-03-01/01-00-00.mp4", "four");
    server.put("Door/2024-03-01/alarm/03-00-00.mp4", "eight...");
    const Reports reports = work({list_day()});
    ASSERT_EQ(names_of(reports), (Texts{"ready", "entries", "done"}));
    EXPECT_EQ(entries_of(reports[1]), (Texts{"01-00-00.mp4 normal 5 4", "02-00-00.mp4 normal 6 -1",
                                             "01-00-00.mp4 alarm 7 -1", "03-00-00.mp4 alarm 8 8"}));
    EXPECT_EQ(server.calls,
              (Texts{"connect", "list Door/2024-03-01", "list Door/2024-03-01/alarm"}));
    EXPECT_EQ(std::get<Entries>(reports[1]).entries[0].modified_ns,
              SourceFile(folder.path() + "/" + DAY + "/01-00-00.mp4").modified_ns());
}

TEST_F(WorkerListingTest, FindsOnTheShareWhatHasASafeNameThere) {
    record("01-00-00.a:b", 5);
    server.put("Door/2024-03-01/01-00-00.a_b", "five.");
    EXPECT_EQ(entries_of(work({list_day()})[1]), Texts{"01-00-00.a:b normal 5 5"});
}

TEST_F(WorkerListingTest, ListsTheKindsOfADayThatAreAskedFor) {
    record("01-00-00.mp4", 5);
    record("alarm/02-00-00.mp4", 6);
    ListDay normal = list_day();
    normal.alarm = false;
    ListDay alarm = list_day();
    alarm.normal = false;
    const Reports reports = work({normal, alarm});
    ASSERT_EQ(names_of(reports), (Texts{"ready", "entries", "done", "entries", "done"}));
    EXPECT_EQ(entries_of(reports[1]), Texts{"01-00-00.mp4 normal 5 -1"});
    EXPECT_EQ(entries_of(reports[3]), Texts{"02-00-00.mp4 alarm 6 -1"});
    EXPECT_EQ(server.calls,
              (Texts{"connect", "list Door/2024-03-01", "list Door/2024-03-01/alarm"}))
        << "each looks where it has to";
}

TEST_F(WorkerListingTest, AsksTheShareOnlyWhenItIsTold) {
    record("01-00-00.mp4", 5);
    server.put("Door/2024-03-01/01-00-00.mp4", "five.");
    ListDay order = list_day();
    order.ask_share = false;
    EXPECT_EQ(entries_of(work({order})[1]), Texts{"01-00-00.mp4 normal 5 -1"});
    EXPECT_EQ(server.calls, Texts{"connect"});
}

TEST_F(WorkerListingTest, DayWithoutRecordingsIsDoneToo) {
    const Reports reports = work({list_day()});
    EXPECT_EQ(names_of(reports).back(), "done");
}

/// Names and sizes of the parts in which a day of so many files is reported.
std::vector<std::size_t> parts_of(const Reports& reports, std::set<std::string>& names) {
    std::vector<std::size_t> parts;
    for (const Report& report : reports) {
        const auto* part = std::get_if<Entries>(&report);
        if (!part) continue;
        for (const DayEntry& entry : part->entries) names.insert(entry.name);
        if (!part->entries.empty()) parts.push_back(part->entries.size());
    }
    return parts;
}

TEST_F(WorkerListingTest, DayOfManyFilesIsReportedInParts) {
    using Parts = std::vector<std::size_t>;
    const std::pair<int, Parts> cases[] = {
        {199, {199}}, {200, {200}}, {201, {200, 1}}, {400, {200, 200}}, {401, {200, 200, 1}}};
    int there = 0;
    for (const auto& [files, parts] : cases) {
        for (; there < files; ++there)
            record("00-" + std::to_string(10 + there / 50) + "-" + std::to_string(10 + there % 50) +
                       ".mp4",
                   0);
        std::set<std::string> names;
        EXPECT_EQ(parts_of(work({list_day()}), names), parts);
        EXPECT_EQ(names.size(), static_cast<std::size_t>(files));
    }
}

}  // namespace
