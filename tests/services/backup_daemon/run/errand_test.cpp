// What a lane makes of its orders: what it finds out here, asks the process, and believes of it.
#include "services/backup_daemon/run/errand.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

#include "tests/services/backup_daemon/lane/file_answers.h"
#include "tests/support/temporary_state.h"

using namespace services;

namespace {

using Texts = std::vector<std::string>;

constexpr char DAY[] = "2024-03-01";
const std::string HASH(64, 'a');

const WorkerReport EVERY_REPORT[] = {Ready(),        Files(), files_of({5}),  At{0},
                                     Noted{0, HASH}, Whole(), Whole{HASH, 0}, Removed(),
                                     Room(),         Done(),  CopySeen()};

/// Whether an errand takes none of the reports but those named by their places.
void expect_only(const std::function<std::unique_ptr<Errand>()>& begun,
                 const std::set<std::size_t>& fitting) {
    for (std::size_t report = 0; report < std::size(EVERY_REPORT); ++report)
        EXPECT_EQ(begun()->hear(EVERY_REPORT[report]).has_value(), fitting.contains(report))
            << report;
}

class ErrandTest : public testing::Test {
protected:
    std::string write(const std::string& name, const std::string& content) {
        const std::string path = folder.path() + "/" + DAY + "/" + name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    CopyJob copy_job() const {
        CopyJob job;
        job.recordings = folder.path();
        job.source = std::string(DAY) + "/01-00-00.mp4";
        job.target = "t";
        return job;
    }

    std::unique_ptr<Errand> begun(const Order& order) {
        auto errand = errand_of(order);
        errand->begin();
        return errand;
    }

    TemporaryFolder folder;
};

class ThrowingErrand : public Errand {
public:
    ErrandStep begin() override { throw std::runtime_error("no\nmemory"); }

private:
    std::optional<ErrandStep> take(const WorkerReport&) override { return {}; }
};

TEST_F(ErrandTest, WhatAnErrandThrowsAtItsBeginningIsAFailureAtOnce) {
    const ErrandStep step = ThrowingErrand().start();
    EXPECT_TRUE(step.over && !step.ask);
    const auto& failed = std::get<Failed>(step.tell.at(0));
    EXPECT_EQ(failed.kind, FailureKind::other);
    EXPECT_EQ(failed.text, "no?memory");
}

TEST_F(ErrandTest, ConnectingEndsWithReadyAndTakesNothingElse) {
    const auto step = connecting()->hear(Ready());
    ASSERT_TRUE(step);
    EXPECT_TRUE(step->over);
    ASSERT_EQ(step->tell.size(), 1U);
    EXPECT_TRUE(std::holds_alternative<Ready>(step->tell[0]));
    expect_only(connecting, {0});
}

TEST_F(ErrandTest, FailureEndsEveryErrand) {
    const auto failed = Failed{FailureKind::full, "no room"};
    for (const Order& order : {Order(ListDay()), Order(copy_job()), Order(RemoveFiles())}) {
        const auto step = begun(order)->hear(failed);
        ASSERT_TRUE(step && step->over);
        EXPECT_EQ(std::get<Failed>(step->tell.at(0)).kind, FailureKind::full);
        EXPECT_EQ(std::get<Failed>(step->tell.at(0)).text, "no room");
    }
}

std::string words_of(const std::string& said) {
    const auto step = connecting()->hear(Failed{FailureKind::lost, said});
    return std::get<Failed>(step->tell.at(0)).text;
}

TEST_F(ErrandTest, WordsOfAFailureAreOneShortLine) {
    EXPECT_EQ(words_of("ü: No such file"), "ü: No such file");
    EXPECT_EQ(words_of("a\nroot logged in\r\x1b[2J\x7f" + std::string(1, '\0')),
              "a?root logged in??[2J??");
    EXPECT_EQ(words_of("\xff"
                       "a"),
              "\xef\xbf\xbd"
              "a");
    EXPECT_EQ(words_of(std::string(200'000, 'x')).size(), 6000U);
}

TEST_F(ErrandTest, DaysAreListedHereAndTheProcessIsAskedNothing) {
    for (const char* day : {"2024-02-29", "2024-03-01", "2024-03-02", "2024-03-03"})
        std::filesystem::create_directories(folder.path() + "/" + day);
    const auto errand = errand_of(ListDays{folder.path(), "2024-03-01", "2024-03-02"});
    const ErrandStep step = errand->begin();
    EXPECT_FALSE(step.ask);
    EXPECT_TRUE(step.over);
    EXPECT_EQ(std::get<Days>(step.tell.at(0)).names, (Texts{"2024-03-01", "2024-03-02"}));
    expect_only([&] { return begun(ListDays()); }, {});
}

TEST_F(ErrandTest, FilesAreRemovedByTheProcessWhichTellsThatItIsAlive) {
    const Order order = RemoveFiles{{{"a"}, {"b"}}, {"c"}};
    const ErrandStep step = errand_of(order)->begin();
    ASSERT_TRUE(step.ask);
    ASSERT_EQ(std::get<RemoveFiles>(*step.ask).files.size(), 2U);
    EXPECT_EQ(std::get<RemoveFiles>(*step.ask).files[1].path, "b");
    EXPECT_EQ(std::get<RemoveFiles>(*step.ask).folders, Texts{"c"});
    EXPECT_TRUE(step.tell.empty());
    expect_only([&] { return begun(order); }, {3});
    expect_only([&] { return begun(RemoveFiles()); }, {3, 7});
    EXPECT_FALSE(begun(order)->hear(At{1}));
    EXPECT_FALSE(begun(order)->hear(At{-1}));
    EXPECT_FALSE(begun(order)->hear(At{0})->over);
    for (const std::size_t fates : {0U, 1U, 3U})
        EXPECT_FALSE(begun(order)->hear(Removed{std::vector<Fate>(fates)}));
    const auto last = begun(order)->hear(Removed{{Fate::gone, Fate::stayed}});
    ASSERT_TRUE(last && last->over);
    EXPECT_EQ(std::get<Removed>(last->tell.at(0)).files,
              (std::vector<Fate>{Fate::gone, Fate::stayed}));
}

TEST_F(ErrandTest, NewestDayIsToldThoughItIsNotAskedFor) {
    for (const char* day : {"2024-02-29", "2024-03-01", "2026-01-01"})
        std::filesystem::create_directories(folder.path() + "/" + day);
    const auto told = [&](const std::string& first, const std::string& last) {
        return std::get<Days>(errand_of(ListDays{folder.path(), first, last})->begin().tell.at(0));
    };
    EXPECT_EQ(told("2024-03-01", "2024-03-31").newest, "2026-01-01");
    EXPECT_EQ(told("2024-03-01", "2024-03-31").names, Texts{"2024-03-01"});
    EXPECT_EQ(told("2030-01-01", "2030-01-01").newest, "2026-01-01");
}

TEST_F(ErrandTest, RoomIsAskedForAndBelievedWithinWhatCanBe) {
    const ErrandStep step = errand_of(AskRoom{77})->begin();
    EXPECT_EQ(std::get<AskRoom>(step.ask.value()).awaited, 77);
    expect_only([&] { return begun(AskRoom()); }, {8});
    EXPECT_FALSE(begun(AskRoom())->hear(Room{ShareRoom{-1, 5}}));
    EXPECT_FALSE(begun(AskRoom())->hear(Room{ShareRoom{5, -1}}));
    const auto told = begun(AskRoom())->hear(Room{ShareRoom{5, 9}});
    ASSERT_TRUE(told && told->over);
    EXPECT_EQ(std::get<Room>(told->tell.at(0)).room->free, 5);
}

TEST_F(ErrandTest, CopyIsAskedForWithTheOpenRecording) {
    const std::string path = write("01-00-00.mp4", "0123456789");
    const ErrandStep step = errand_of(copy_job())->begin();
    ASSERT_TRUE(step.ask && step.file);
    EXPECT_EQ(std::get<SendFile>(*step.ask).size, 10);
    EXPECT_EQ(std::get<SendFile>(*step.ask).job.target, "t");
    EXPECT_EQ(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(step.file.get())),
              path);
    EXPECT_TRUE(step.tell.empty());
    EXPECT_FALSE(step.over);
}

TEST_F(ErrandTest, RecordingThatCannotBeOpenedIsToldAndTheProcessIsAskedNothing) {
    const ErrandStep gone = errand_of(copy_job())->begin();
    EXPECT_EQ(std::get<Failed>(gone.tell.at(0)).kind, FailureKind::gone);
    EXPECT_TRUE(gone.over && !gone.ask);
    std::filesystem::create_directories(folder.path() + "/" + DAY);
    std::filesystem::create_symlink("/etc/passwd", folder.path() + "/" + copy_job().source);
    const ErrandStep linked = errand_of(copy_job())->begin();
    EXPECT_EQ(std::get<Failed>(linked.tell.at(0)).kind, FailureKind::source);
    EXPECT_TRUE(linked.over && !linked.ask);
}

TEST_F(ErrandTest, CopyIsToldAsTheRecordingWasWhenItWasOpened) {
    const std::string path = write("01-00-00.mp4", "0123456789");
    const auto errand = errand_of(copy_job());
    struct stat found {};
    ASSERT_EQ(stat(path.c_str(), &found), 0);
    const long long modified_ns =
        static_cast<long long>(found.st_mtim.tv_sec) * 1'000'000'000 + found.st_mtim.tv_nsec;
    EXPECT_EQ(std::get<SendFile>(*errand->begin().ask).modified_ns, modified_ns);
    write("01-00-00.mp4", "it has grown since");
    const auto step = errand->hear(Whole{HASH, -8});
    ASSERT_TRUE(step && step->over);
    const CopyResult& result = std::get<Copied>(step->tell.at(0)).result;
    EXPECT_EQ(result.size, 10);
    EXPECT_EQ(result.modified_ns, modified_ns);
    EXPECT_EQ(result.sha256, HASH);
    EXPECT_EQ(result.share_modified_ns, -8);
}

TEST_F(ErrandTest, CopyingIsBelievedWithinTheFileAlone) {
    write("01-00-00.mp4", "0123456789");
    for (const long long offset : {0LL, 10LL}) {
        EXPECT_TRUE(begun(copy_job())->hear(At{offset}));
        EXPECT_TRUE(begun(copy_job())->hear(Noted{offset, HASH}));
        EXPECT_TRUE(begun(copy_job())->hear(Noted{offset, ""}));
    }
    for (const long long offset : {-1LL, 11LL, 1LL << 62}) {
        EXPECT_FALSE(begun(copy_job())->hear(At{offset}));
        EXPECT_FALSE(begun(copy_job())->hear(Noted{offset, HASH}));
    }
    expect_only([&] { return begun(copy_job()); }, {3, 4, 6});
}

TEST_F(ErrandTest, CheckpointsAreNoMoreThanAFileHasOfThem) {
    write("01-00-00.mp4", "");
    std::filesystem::resize_file(folder.path() + "/" + copy_job().source, 17 * 1024 * 1024);
    const auto errand = begun(copy_job());
    // Two attempts with two checkpoints, behind each the one that begins anew.
    for (int count = 0; count < 6; ++count) EXPECT_TRUE(errand->hear(Noted{0, ""})) << count;
    EXPECT_FALSE(errand->hear(Noted{0, ""}));
}

TEST_F(ErrandTest, BeginningThatTheServerCopiesIsOneCheckpointMore) {
    write("01-00-00.mp4", "0123456789");
    CopyJob grown = copy_job();
    grown.recorded.emplace();
    const auto errand = begun(grown);
    for (int count = 0; count < 3; ++count) EXPECT_TRUE(errand->hear(Noted{0, ""})) << count;
    EXPECT_FALSE(errand->hear(Noted{0, ""}));
}

TEST_F(ErrandTest, HashIsOneOrNoneAsTheJobAsks) {
    write("01-00-00.mp4", "0123456789");
    const std::string no_hashes[] = {HASH + "a", HASH.substr(1), std::string(64, 'A'),
                                     std::string(64, 'g'), HASH.substr(1) + '\n'};
    for (const std::string& text : no_hashes) {
        EXPECT_FALSE(begun(copy_job())->hear(Whole{text, 0})) << text;
        EXPECT_FALSE(begun(copy_job())->hear(Noted{5, text})) << text;
    }
    CopyJob unchecked = copy_job();
    unchecked.check = false;
    EXPECT_TRUE(begun(unchecked)->hear(Whole{"", 0}));
    EXPECT_FALSE(begun(unchecked)->hear(Whole{HASH, 0}));
    CopyJob described = unchecked;
    described.side_file = SideFile{.channel = 1, .guid = "g", .start = 1};
    EXPECT_TRUE(begun(described)->hear(Whole{HASH, 0}));
    EXPECT_FALSE(begun(described)->hear(Whole{"", 0}));
}

}  // namespace
