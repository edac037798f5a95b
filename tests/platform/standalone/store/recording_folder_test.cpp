// Reading recordings off the disk: days, edges, sizes, and what does not count.
#include "platform/standalone/store/recording_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <utility>
#include <vector>

#include "platform/rec_state.h"
#include "platform/standalone/store/channel_store.h"
#include "platform/vesk_storage.h"
#include "tests/platform/standalone/set_clock.h"
#include "tests/platform/standalone/store/entries_read.h"
#include "tests/support/temporary_state.h"

int entries_read;
std::string fails_behind;

namespace {

using namespace standalone;

constexpr std::time_t NOW = 1'750'000'000;  // in the afternoon of 2025-06-15

class RecordingFolderTest : public StateTest {
protected:
    RecordingFolderTest() {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
        set_clock = static_cast<unsigned long long>(NOW) * 1000;
    }
    ~RecordingFolderTest() override {
        set_clock = 0;
        unsetenv("TZ");
        fails_behind.clear();
    }

    std::string problem_of_day(RecordingKinds kinds = {}) const {
        try {
            recordings_of_day(folder_, "2024-01-02", kinds);
            return "";
        } catch (const UnreadableFolder& problem) {
            return problem.what();
        }
    }

    /// What `look` says when it is another user's.
    template <typename Look>
    std::string as_nobody(Look look) const {
        std::filesystem::permissions(state_.folder(), std::filesystem::perms(0755));
        if (seteuid(65534) != 0) return "needs root";
        const std::string said = look();
        EXPECT_EQ(seteuid(0), 0);
        return said;
    }

    void close_to_others(const std::string& name) const {
        std::filesystem::permissions(folder_ + name, std::filesystem::perms(0700));
    }

    void record(const std::string& name, const std::string& content = "x") const {
        write_file(folder_ + '/' + name, content);
    }

    static void set_write_time(const std::string& path, std::time_t seconds) {
        const timespec times[2] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }

    void add_channel(int index, const std::string& guid, const std::string& folder) {
        Channel channel;
        channel.index = index;
        channel.guid = guid;
        channel.streams = 2;
        channel.recordings = folder;
        ASSERT_TRUE(ChannelStore(database_).add(channel));
    }

    std::vector<TChannelStatus> states() {
        std::vector<TChannelStatus> channels(VESK_MAX_CHANNELS);
        std::string text(REC_STATE_TEXT_SIZE, 'x');
        int count = 0;
        EXPECT_EQ(
            nvr_rec_state_read(text.data(), count, channels.data(), VESK_MAX_CHANNELS, nullptr), 0);
        return channels;
    }

    Database database_{config_database_path(), Database::Access::writing};
    std::string folder_ = state_.folder() + "/recordings";
};

std::string day_from_now(int days) {
    const std::time_t at = NOW + days * 86400;
    char text[16];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d", std::localtime(&at))};
}

TEST_F(RecordingFolderTest, CountsDaysAndFindsTheEdgesInLocalTime) {
    record("2024-01-02/23-59-59.mp4");
    record("2024-01-02/10-00-00.mkv");
    record("2024-07-01/alarm/08-30-00.mp4");
    record("2024-07-01/08-29-00.mp4");
    record("2024-07-02/alarm/00-00-01.mp4");
    const RecordingSummary summary = summarize_recordings(folder_);
    EXPECT_EQ(summary.normal_days, 2);
    EXPECT_EQ(summary.alarm_days, 2);
    EXPECT_EQ(summary.earliest, 1704186000000);  // 2024-01-02 09:00:00 UTC
    EXPECT_EQ(summary.latest, 1719871201000);    // 2024-07-01 22:00:01 UTC
}

TEST_F(RecordingFolderTest, PassesOverWhatIsNoRecording) {
    record("2024-02-30/10-00-00.mp4");
    record("2024-1-02/10-00-00.mp4");
    record("notes/10-00-00.mp4");
    record("2024-01-02/25-00-00.mp4");
    record("2024-01-02/10-00-00");
    record("2024-01-02/index.db");
    record("10-00-00.mp4");
    std::filesystem::create_directories(folder_ + "/2024-01-03");
    std::filesystem::create_directories(folder_ + "/2024-01-04/10-00-00.mp4");
    record("2024-01-05", "a file");
    const RecordingSummary summary = summarize_recordings(folder_);
    EXPECT_EQ(summary.normal_days + summary.alarm_days, 0);
    EXPECT_FALSE(summary.earliest);
}

TEST_F(RecordingFolderTest, LooksPastEmptyDaysForTheOldestAndTheNewestRecording) {
    for (const char* empty : {"2024-01-01", "2024-01-02/alarm", "2024-01-05", "2024-01-06"})
        std::filesystem::create_directories(folder_ + '/' + empty);
    record("2024-01-06/alarm/index.db");
    record("2024-01-03/alarm/10-00-00.mp4");
    RecordingSummary summary = summarize_recordings(folder_);
    EXPECT_EQ(summary.normal_days, 0);
    EXPECT_EQ(summary.alarm_days, 1);
    EXPECT_EQ(summary.earliest, 1704272400000);  // 2024-01-03 09:00:00 UTC
    EXPECT_EQ(summary.latest, 1704272400000);
    record("2024-01-04/11-00-00.mp4");
    summary = summarize_recordings(folder_);
    EXPECT_EQ(summary.normal_days, 1);
    EXPECT_EQ(summary.alarm_days, 1);
    EXPECT_EQ(summary.earliest, 1704272400000);
    EXPECT_EQ(summary.latest, 1704362400000);
}

TEST_F(RecordingFolderTest, TakesTheFoldersOfInnerDaysForTheirContent) {
    record("2024-01-01/10-00-00.mp4");
    std::filesystem::create_directories(folder_ + "/2024-01-02");
    std::filesystem::create_directories(folder_ + "/2024-01-03/alarm");
    record("2024-01-04/alarm", "a file");
    record("2024-01-05/alarm/10-00-00.mp4");
    const RecordingSummary summary = summarize_recordings(folder_);
    EXPECT_EQ(summary.normal_days, 4);
    EXPECT_EQ(summary.alarm_days, 2);
}

TEST_F(RecordingFolderTest, ReadsNoDayButTheOldestAndTheNewest) {
    constexpr int DAYS = 28;
    constexpr int FILES = 200;
    for (int day = 1; day <= DAYS; ++day)
        for (int file = 0; file < FILES; ++file) {
            char name[64];
            std::snprintf(name, sizeof name, "2024-02-%02d/%02d-%02d-00.mp4", day, file / 60,
                          file % 60);
            record(name, "");
        }
    entries_read = 0;
    const RecordingSummary summary = summarize_recordings(folder_);
    EXPECT_EQ(summary.normal_days, DAYS);
    EXPECT_EQ(summary.earliest, 1706742000000);  // 2024-01-31 23:00:00 UTC
    EXPECT_EQ(summary.latest, 1709086740000);    // 2024-02-28 02:19:00 UTC
    // Each folder's end and the entries "." and ".." are read, too.
    EXPECT_EQ(entries_read, DAYS + 2 * FILES + 3 * 3);
}

TEST_F(RecordingFolderTest, FindsTheOldestRecordingAcrossClockChanges) {
    const struct {
        const char* name;
        long long milliseconds;
    } rows[] = {
        {"2024-03-30/23-59-59.mp4", 1711839599000},  // 22:59:59 UTC
        {"2024-03-31/01-59-59.mp4", 1711846799000},  // 00:59:59 UTC, the last second of winter
        {"2024-03-31/03-00-00.mp4", 1711846800000},  // 01:00:00 UTC, the first one of summer
        {"2024-10-27/01-59-59.mp4", 1729987199000},  // 23:59:59 UTC, before the hour that is twice
        {"2024-10-27/03-00-00.mp4", 1729994400000},  // 02:00:00 UTC
    };
    for (const auto& row : rows) {
        std::filesystem::remove_all(folder_);
        record(row.name);
        EXPECT_EQ(summarize_recordings(folder_).earliest, row.milliseconds) << row.name;
    }
}

TEST_F(RecordingFolderTest, SkipsDaysItMayNotRead) {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    record("2024-01-01/10-00-00.mp4");
    record("2024-01-02/10-00-00.mp4");
    record("2024-01-03/10-00-00.mp4");
    namespace fs = std::filesystem;
    fs::permissions(state_.folder(), fs::perms(0755));
    for (const char* day : {"2024-01-01", "2024-01-03"})
        fs::permissions(folder_ + '/' + day, fs::perms::none);
    ASSERT_EQ(seteuid(65534), 0);
    const RecordingSummary summary = summarize_recordings(folder_);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(summary.normal_days, 1);
    EXPECT_EQ(summary.earliest, 1704186000000);  // 2024-01-02 09:00:00 UTC
    EXPECT_EQ(summary.latest, 1704186000000);
}

TEST_F(RecordingFolderTest, PassesOverDaysThatHaveNotBegun) {
    record(day_from_now(3) + "/10-00-00.mp4");
    EXPECT_EQ(summarize_recordings(folder_).normal_days, 0);
    EXPECT_FALSE(newest_write(folder_));
}

TEST_F(RecordingFolderTest, FollowsNoLinks) {
    const TemporaryFolder outside;
    write_file(outside.path() + "/10-00-00.mp4", "secret");
    std::filesystem::create_directories(folder_ + "/2024-01-03");
    std::filesystem::create_symlink(outside.path(), folder_ + "/2024-01-02");
    std::filesystem::create_symlink(outside.path(), folder_ + "/2024-01-03/alarm");
    std::filesystem::create_symlink(outside.path() + "/10-00-00.mp4",
                                    folder_ + "/2024-01-03/11-00-00.mp4");
    const RecordingSummary summary = summarize_recordings(folder_);
    EXPECT_EQ(summary.normal_days + summary.alarm_days, 0);
    EXPECT_EQ(measure_recordings(folder_).normal, 0);
}

TEST_F(RecordingFolderTest, MeasuresNormalAndAlarmRecordings) {
    record("2024-01-02/10-00-00.mp4", "12345");
    record("2024-01-03/10-00-00.mp4", "123");
    record("2024-01-03/alarm/11-00-00.mp4", "1234567");
    record("2024-01-03/index.db", "not counted");
    EXPECT_EQ(measure_recordings(folder_).normal, 8);
    EXPECT_EQ(measure_recordings(folder_).alarm, 7);
}

TEST_F(RecordingFolderTest, SkipsFoldersThatAreNotThere) {
    EXPECT_EQ(summarize_recordings(folder_ + "/none").normal_days, 0);
    EXPECT_EQ(measure_recordings(folder_ + "/none").normal, 0);
    EXPECT_FALSE(newest_write(folder_ + "/none"));
}

TEST_F(RecordingFolderTest, TakesTheFirstAndTheLastSecondOfADayAndNothingBeyond) {
    for (const char* name : {"24-00-00.mp4", "23-60-00.mp4", "23-59-60.mp4", "1-00-00.mp4",
                             "01-00-0.mp4", "01_00-00.mp4", "01-00_00.mp4", "01-00-00_mp4",
                             "0a-00-00.mp4", "00-0a-00.mp4", "00-00-0a.mp4", "01-00-00."})
        record(std::string("2024-01-02/") + name);
    EXPECT_TRUE(recordings_of_day(folder_, "2024-01-02").empty());
    record("2024-01-02/00-00-00.mp4");
    record("2024-01-02/23-59-59.x");
    const auto files = recordings_of_day(folder_, "2024-01-02");
    ASSERT_EQ(files.size(), 2U);
    EXPECT_EQ(files.front().name, "00-00-00.mp4");
    EXPECT_EQ(files.back().name, "23-59-59.x");
}

TEST_F(RecordingFolderTest, TakesDaysThatThereAre) {
    for (const char* day : {"2024-02-29", "2023-02-29", "2024-02-30", "2024-00-01", "2024-13-01",
                            "2024-01-00", "2024-04-31", "2024_01-01", "2024-01_01", "2024-01-011"})
        std::filesystem::create_directories(folder_ + '/' + day);
    EXPECT_EQ(recording_days(folder_, "", "9"), std::vector<std::string>{"2024-02-29"});
}

TEST_F(RecordingFolderTest, ListsTheDaysOfARangeWithBothItsEnds) {
    for (const char* day : {"2024-03-04", "2024-03-01", "2024-03-03", "2024-03-02"})
        std::filesystem::create_directories(folder_ + '/' + day);
    std::filesystem::create_directories(folder_ + '/' + day_from_now(0));
    std::filesystem::create_directories(folder_ + '/' + day_from_now(2));
    EXPECT_EQ(recording_days(folder_, "2024-03-02", "2024-03-03"),
              (std::vector<std::string>{"2024-03-02", "2024-03-03"}));
    EXPECT_EQ(recording_days(folder_, "2024-03-04", "9999-12-31"),
              (std::vector<std::string>{"2024-03-04", day_from_now(0)}));
    EXPECT_TRUE(recording_days(folder_, "2024-03-03", "2024-03-02").empty());
}

TEST_F(RecordingFolderTest, SaysWhyAChannelCannotBeRead) {
    record("file");
    EXPECT_EQ(recordings_problem(folder_), "");
    const std::string none = folder_ + "/none";
    EXPECT_EQ(recordings_problem(none), none + " cannot be read: No such file or directory");
    EXPECT_EQ(recordings_problem(folder_ + "/file"),
              folder_ + "/file cannot be read: Not a directory");
    EXPECT_THROW(recording_days(none, "", "9"), UnreadableFolder);
    EXPECT_THROW(recordings_of_day(none, "2024-01-02"), UnreadableFolder);
}

TEST_F(RecordingFolderTest, ChannelWithoutRecordingsHasNoDaysAndNoProblem) {
    std::filesystem::create_directories(folder_);
    EXPECT_EQ(recordings_problem(folder_), "");
    EXPECT_TRUE(recording_days(folder_, "", "9").empty());
}

TEST_F(RecordingFolderTest, FoldersThatMustNotBeReadAreNotTakenForEmptyOnes) {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    record("2024-01-02/alarm/10-00-00.mp4");
    const auto day = [this] { return problem_of_day(); };
    const auto normal_alone = [this] { return problem_of_day({.normal = true, .alarm = false}); };
    close_to_others("/2024-01-02/alarm");
    EXPECT_EQ(as_nobody(day), folder_ + "/2024-01-02/alarm cannot be read: Permission denied");
    EXPECT_EQ(as_nobody(normal_alone), "");
    close_to_others("/2024-01-02");
    EXPECT_EQ(as_nobody(day), folder_ + "/2024-01-02 cannot be read: Permission denied");
    close_to_others("");
    EXPECT_EQ(as_nobody([this] { return recordings_problem(folder_); }),
              folder_ + " cannot be read: Permission denied");
}

TEST_F(RecordingFolderTest, FilesThatMustNotBeLookedAtAreNotPassedOver) {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    record("2024-01-02/10-00-00.mp4");
    std::filesystem::permissions(folder_ + "/2024-01-02", std::filesystem::perms(0744));
    EXPECT_EQ(as_nobody([this] { return problem_of_day(); }),
              folder_ + "/2024-01-02 cannot be read: Permission denied");
}

TEST_F(RecordingFolderTest, DiskThatFailsInTheMiddleOfAFolderIsNotItsEnd) {
    record("2024-01-02/10-00-00.mp4");
    record("2024-01-02/alarm/11-00-00.mp4");
    fails_behind = "11-00-00.mp4";
    EXPECT_EQ(problem_of_day(), folder_ + "/2024-01-02/alarm cannot be read: Input/output error");
    fails_behind = "10-00-00.mp4";
    EXPECT_EQ(problem_of_day(), folder_ + "/2024-01-02 cannot be read: Input/output error");
    fails_behind = "2024-01-02";
    EXPECT_EQ(recordings_problem(folder_), folder_ + " cannot be read: Input/output error");
    EXPECT_EQ(summarize_recordings(folder_).normal_days, 1) << "what can be read is counted";
}

TEST_F(RecordingFolderTest, ListsADaysRecordingsByNameNormalOnesFirst) {
    record("2024-01-02/alarm/01-00-00.mp4", "1");
    record("2024-01-02/09-00-00.mp4", "22");
    record("2024-01-02/08-00-00.mkv", "333");
    record("2024-01-02/index.db");
    const timespec times[2] = {{1, 2}, {1'700'000'000, 123'456'789}};
    ASSERT_EQ(utimensat(AT_FDCWD, (folder_ + "/2024-01-02/08-00-00.mkv").c_str(), times, 0), 0);
    const auto files = recordings_of_day(folder_, "2024-01-02");
    ASSERT_EQ(files.size(), 3U);
    EXPECT_EQ(files[0].name, "08-00-00.mkv");
    EXPECT_EQ(files[0].size, 3);
    EXPECT_EQ(files[0].modified_ns, 1'700'000'000'123'456'789);
    EXPECT_FALSE(files[0].alarm);
    EXPECT_EQ(files[1].name, "09-00-00.mp4");
    EXPECT_EQ(files[2].name, "01-00-00.mp4");
    EXPECT_TRUE(files[2].alarm);
    EXPECT_TRUE(recordings_of_day(folder_, "2024-01-03").empty());
}

TEST_F(RecordingFolderTest, TellsARecordingsStartInSecondsOfTheSeasonsTime) {
    EXPECT_EQ(recording_start("2024-01-02", "10-00-01.mp4"), 1704186001);  // 09:00:01 UTC
    EXPECT_EQ(recording_start("2024-07-02", "10-00-01.mp4"), 1719907201);  // 08:00:01 UTC
}

TEST_F(RecordingFolderTest, NewestWriteIsThatOfTheNewestRecordingByItsName) {
    const auto touch = [this](const char* name, long seconds) {
        record(name);
        set_write_time(folder_ + '/' + name, seconds);
    };
    touch("2024-01-02/10-00-00.mp4", 500);
    touch("2024-01-02/alarm/11-00-00.mp4", 400);
    touch("2024-01-01/12-00-00.mp4", 900);
    std::filesystem::create_directories(folder_ + "/2024-01-03");
    EXPECT_EQ(newest_write(folder_), 400);
}

TEST_F(RecordingFolderTest, FillsTheArraysOfStoredChannelsAlone) {
    record("2024-01-02/10-00-00.mp4");
    add_channel(127, "a", folder_);
    add_channel(0, "b", folder_ + "/none");
    std::array<int, VESK_MAX_CHANNELS> normal{};
    std::array<int, VESK_MAX_CHANNELS> alarm{};
    std::array<long long, VESK_MAX_CHANNELS> earliest{};
    std::array<long long, VESK_MAX_CHANNELS> latest{};
    earliest[0] = -7;
    ASSERT_EQ(get_storage_days(normal.data(), alarm.data(), earliest.data(), latest.data()), 0);
    EXPECT_EQ(normal[127], 1);
    EXPECT_EQ(alarm[127], 0);
    EXPECT_EQ(earliest[127], 1704186000000);
    EXPECT_EQ(latest[127], 1704186000000);
    EXPECT_EQ(earliest[0], -7);
}

TEST_F(RecordingFolderTest, AddsUpChannelsThatHadOneIndex) {
    record("2024-01-02/10-00-00.mp4");
    const std::string other = state_.folder() + "/other";
    write_file(other + "/2023-01-02/10-00-00.mp4", "x");
    add_channel(5, "old", other);
    ASSERT_TRUE(ChannelStore(database_).remove(5));
    add_channel(5, "new", folder_);
    std::array<int, VESK_MAX_CHANNELS> normal{};
    std::array<int, VESK_MAX_CHANNELS> alarm{};
    std::array<long long, VESK_MAX_CHANNELS> earliest{};
    std::array<long long, VESK_MAX_CHANNELS> latest{};
    ASSERT_EQ(get_storage_days(normal.data(), alarm.data(), earliest.data(), latest.data()), 0);
    EXPECT_EQ(normal[5], 2);
    EXPECT_EQ(earliest[5], 1672650000000);  // 2023-01-02 09:00:00 UTC
    EXPECT_EQ(latest[5], 1704186000000);
}

TEST_F(RecordingFolderTest, IsConnectedWhileItsNewestFileIsFresh) {
    record(day_from_now(0) + "/00-00-00.mp4");
    const std::string stale = state_.folder() + "/stale/" + day_from_now(0) + "/00-00-00.mp4";
    write_file(stale, "x");
    set_write_time(folder_ + "/" + day_from_now(0) + "/00-00-00.mp4", NOW - 599);
    set_write_time(stale, NOW - 600);
    add_channel(1, "fresh", folder_);
    add_channel(2, "stale", state_.folder() + "/stale");
    const auto channels = states();
    EXPECT_EQ(channels[1].stream_state[0], 0);
    EXPECT_EQ(channels[1].stream_state[1], 0);
    EXPECT_EQ(channels[1].stream_state[2], 4);
    EXPECT_EQ(channels[2].stream_state[0], 7);
    EXPECT_EQ(channels[3].stream_state[0], 4);
}

TEST_F(RecordingFolderTest, ShowsAPinnedStateUntilItIsUnpinned) {
    add_channel(1, "a", folder_);
    ASSERT_TRUE(ChannelStore(database_).pin_state(1, {3, 9}));
    EXPECT_EQ(states()[1].stream_state[0], 3);
    EXPECT_EQ(states()[1].stream_state[1], 9);
    ASSERT_TRUE(ChannelStore(database_).pin_state(1, {}));
    EXPECT_EQ(states()[1].stream_state[0], 7);
}

TEST_F(RecordingFolderTest, ReportsAStoreThatIsNotThere) {
    setenv("RECORDER_STATE", "/nonexistent", 1);
    std::vector<TChannelStatus> channels(VESK_MAX_CHANNELS);
    std::string text(REC_STATE_TEXT_SIZE, 'x');
    int count = 5;
    EXPECT_NE(nvr_rec_state_read(text.data(), count, channels.data(), VESK_MAX_CHANNELS, nullptr),
              0);
    EXPECT_EQ(count, 0);
    std::array<int, VESK_MAX_CHANNELS> days{};
    std::array<long long, VESK_MAX_CHANNELS> times{};
    EXPECT_NE(get_storage_days(days.data(), days.data(), times.data(), times.data()), 0);
}

}  // namespace

extern "C" {
dirent* __real_readdir(DIR* folder);

dirent* __wrap_readdir(DIR* folder) {
    static bool fails = false;
    ++entries_read;
    if (std::exchange(fails, false)) {
        errno = EIO;
        return nullptr;
    }
    dirent* entry = __real_readdir(folder);
    fails = entry && entry->d_name == fails_behind;
    return entry;
}
}
