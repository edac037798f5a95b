// The index of the channels' recordings: what it spares, and what it does not believe.
#include "platform/standalone/store/recording_index.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "platform/standalone/store/folder_reader.h"
#include "platform/standalone/store/recording_name.h"
#include "tests/platform/standalone/store/entries_read.h"
#include "tests/platform/standalone/store/index_fixture.h"

namespace {

using namespace standalone;
namespace fs = std::filesystem;

class RecordingIndexTest : public IndexTest {
protected:
    RecordingIndexTest() {
        record("2024-01-01/10-00-00.mp4");
        record("2024-01-02/10-00-00.mp4");
        record("2024-01-02/alarm/11-00-00.mp4");
        record("2024-01-03/12-00-00.mp4");
        record("2024-01-04/alarm/13-00-00.mp4");
    }
    ~RecordingIndexTest() override { unsetenv("TZ"); }

    /// What the index says at that time, which must be right, and how much it has read for it.
    int entries_read_by_index(const Moment& clock = later()) const {
        entries_read = 0;
        const ChannelAnswer answer = through_index(clock);
        const int entries = entries_read;
        EXPECT_EQ(answer, full_look());
        return entries;
    }
};

TEST_F(RecordingIndexTest, FoldersThatHaveNotChangedAreNotReadAgain) {
    if (!spares_reading()) GTEST_SKIP() << "an unknown file system";
    EXPECT_GT(entries_read_by_index(), 0);
    EXPECT_EQ(entries_read_by_index(), 0);
}

TEST_F(RecordingIndexTest, OfManyDaysNoneIsLookedAtButThoseAtTheEnds) {
    if (!spares_reading()) GTEST_SKIP() << "an unknown file system";
    through_index();
    fs::permissions(channel_ + "/2024-01-02", fs::perms::none);
    let_time_pass();
    record("2024-01-04/alarm/14-00-00.mp4");
    const int entries = entries_read_by_index();
    EXPECT_GT(entries, 0);
    EXPECT_LT(entries, 10) << "the newest day's two folders";
}

TEST_F(RecordingIndexTest, ChannelWithoutRecordingsIsKnownToHaveNone) {
    if (!spares_reading()) GTEST_SKIP() << "an unknown file system";
    fs::remove_all(channel_);
    fs::create_directories(channel_);
    EXPECT_GT(entries_read_by_index(), 0);
    EXPECT_EQ(entries_read_by_index(), 0);
    fs::create_directories(channel_ + "/2024-01-05/alarm");
    let_time_pass();
    EXPECT_GT(entries_read_by_index(), 0);
    EXPECT_EQ(entries_read_by_index(), 0);
    record("2024-01-05/alarm/10-00-00.mp4");
    EXPECT_EQ(through_index().alarm_days, 1);
}

TEST_F(RecordingIndexTest, FolderThatChangedJustNowIsNotTrusted) {
    const Moment just_now = since_change(channel_ + "/2024-01-04/alarm", SECOND_NS);
    EXPECT_GT(entries_read_by_index(just_now), 0);
    EXPECT_GT(entries_read_by_index(just_now), 0);
}

TEST_F(RecordingIndexTest, NothingIsTrustedWhoseTimesLieAhead) {
    const Moment before = since_change(channel_ + "/2024-01-01", -SECOND_NS);
    EXPECT_GT(entries_read_by_index(before), 0);
    EXPECT_GT(entries_read_by_index(before), 0);
}

TEST_F(RecordingIndexTest, ClockThatWasSetIsNotTrusted) {
    const Moment first = later();
    through_index(first);
    Moment ahead = later();
    ahead.now_ns += SECOND_NS;
    ahead.boot_ns += SECOND_NS;
    EXPECT_GT(entries_read_by_index(ahead), 0);
    EXPECT_GT(entries_read_by_index(first), 0) << "set back again";
    Moment back = first;
    back.now_ns -= 1;
    EXPECT_GT(entries_read_by_index(back), 0) << "earlier than the look";
}

TEST_F(RecordingIndexTest, NothingIsTrustedForMoreThanADay) {
    through_index();
    EXPECT_GT(entries_read_by_index(later(24 * 3600 * SECOND_NS + 11 * SECOND_NS)), 0);
}

TEST_F(RecordingIndexTest, AlarmFolderOfAnInnerDayCountsWithinADayOrWithTheNextChangeOfDays) {
    if (!spares_reading()) GTEST_SKIP() << "an unknown file system";
    through_index();
    fs::create_directories(channel_ + "/2024-01-03/alarm");
    EXPECT_EQ(through_index().alarm_days, 2) << "and not three";
    EXPECT_EQ(through_index(later(25 * 3600 * SECOND_NS), false), full_look());
    fs::remove(channel_ + "/2024-01-03/alarm");
    let_time_pass();
    record("2024-01-05/10-00-00.mp4");
    EXPECT_EQ(through_index(), full_look());
}

TEST_F(RecordingIndexTest, ModificationTimeThatIsSetBackHidesNothing) {
    const auto hide = [this](const std::string& folder, const std::string& name) {
        struct stat before {};
        ASSERT_EQ(stat(folder.c_str(), &before), 0);
        through_index();
        let_time_pass();
        write_file(folder + '/' + name, "x");
        const timespec times[2] = {before.st_atim, before.st_mtim};
        ASSERT_EQ(utimensat(AT_FDCWD, folder.c_str(), times, 0), 0);
        EXPECT_EQ(through_index(), full_look());
    };
    hide(channel_ + "/2024-01-01", "09-00-00.mp4");
    hide(channel_ + "/2024-01-04", "23-00-00.mp4");
    hide(channel_ + "/2024-01-04/alarm", "23-30-00.mp4");
}

TEST_F(RecordingIndexTest, DayBeginsAtMidnight) {
    const auto zone = [](const char* name) {
        setenv("TZ", name, 1);
        tzset();
        return today();
    };
    const std::string east = zone("EAST-14");
    ASSERT_GT(east, zone("WEST+12"));
    record(east + "/00-00-00.mp4");
    EXPECT_EQ(through_index().latest, full_look().latest);
    zone("EAST-14");
    EXPECT_EQ(through_index(), full_look());
    EXPECT_EQ(through_index().normal_days, 5);
    zone("WEST+12");
    EXPECT_EQ(through_index(), full_look());
    EXPECT_EQ(through_index().normal_days, 3);
}

TEST_F(RecordingIndexTest, TimesAreThoseOfTheZoneThatIsSet) {
    through_index();
    setenv("TZ", "EAST-14", 1);
    tzset();
    EXPECT_EQ(through_index(), full_look());
}

TEST_F(RecordingIndexTest, NewestRecordingIsLookedAtEachTime) {
    through_index();
    const timespec times[2] = {{5, 0}, {5, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (channel_ + "/2024-01-04/alarm/13-00-00.mp4").c_str(), times, 0),
              0);
    EXPECT_EQ(through_index().newest_write, 5);
}

TEST_F(RecordingIndexTest, FolderBehindALinkIsTheOneTheLinkNames) {
    fs::rename(channel_, folder_.path() + "/one");
    fs::create_directories(folder_.path() + "/two/2023-05-06");
    fs::create_directory_symlink("one", channel_);
    through_index();
    fs::remove(channel_);
    fs::create_directory_symlink("two", channel_);
    EXPECT_EQ(through_index(), full_look());
    EXPECT_FALSE(through_index().earliest);
}

TEST_F(RecordingIndexTest, FoldersThatMustNotBeReadAreTriedEachTime) {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    fs::permissions(folder_.path(), fs::perms(0755));
    fs::permissions(channel_ + "/2024-01-04/alarm", fs::perms(0700));
    ASSERT_EQ(chown(folder_.path().c_str(), 65534, 65534), 0);
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_EQ(through_index().alarm_days, 1) << "of an inner day alone";
    EXPECT_EQ(through_index(), full_look());
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(through_index(), full_look()) << "who may read it";
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_EQ(through_index(), full_look()) << "who may not";
    ASSERT_EQ(seteuid(0), 0);
}

TEST_F(RecordingIndexTest, WhatADiskDoesNotShowOnceIsLookedForAgain) {
    record("2024-01-04/14-00-00.mp4");
    for (const char* name : {"13-00-00.mp4", "14-00-00.mp4", "2024-01-02"}) {
        fails_behind = name;
        through_index();
        fails_behind.clear();
        EXPECT_GT(entries_read_by_index(), 0) << name;
        fs::remove(path_);
    }
}

TEST_F(RecordingIndexTest, OtherGroupsMakeAnotherReader) {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    through_index();
    ASSERT_EQ(setegid(65534), 0);
    EXPECT_GT(entries_read_by_index(), 0);
    ASSERT_EQ(setegid(0), 0);
}

TEST_F(RecordingIndexTest, DiskThatIsFullOrReadOnlyCostsTimeAlone) {
    if (!spares_reading()) GTEST_SKIP() << "an unknown file system";
    through_index();
    ASSERT_FALSE(read_looks(path_).empty());
    record("2024-01-05/10-00-00.mp4");
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto signal_before = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{100, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const ChannelAnswer answer = through_index();
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, signal_before);
    EXPECT_EQ(answer, full_look());
    EXPECT_TRUE(read_looks(path_).empty()) << "half of it is old";
    EXPECT_EQ(through_index(), full_look());
    fs::remove(path_);
    fs::create_directories(path_);
    EXPECT_EQ(through_index(), full_look());
    EXPECT_EQ(RecordingIndex("/proc/none", later()).summarize(channel_).normal_days, 5);
}

TEST_F(RecordingIndexTest, WhatLiesInTheIndexsPlaceIsLeftAlone) {
    const std::string other = folder_.path() + "/other";
    write_file(other, "precious");
    fs::create_symlink(other, path_);
    EXPECT_EQ(through_index(), full_look());
    EXPECT_EQ(read_file(other), "precious");
    fs::remove(path_);
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_EQ(through_index(), full_look());
}

TEST_F(RecordingIndexTest, ForgetsChannelsThatAreGone) {
    through_index();
    const std::string other = folder_.path() + "/other";
    fs::create_directories(other);
    RecordingIndex index(path_, later());
    index.summarize(other);
    index.save();
    if (!spares_reading()) GTEST_SKIP() << "an unknown file system";
    const KeptLooks kept = read_looks(path_);
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(kept.begin()->first, other);
}

TEST_F(RecordingIndexTest, FoldersOfFileSystemsWithTimesOfTheirOwnAreNeverTrusted) {
    for (const char* folder : {"/proc", "/sys"}) {
        const Folder open = open_folder(AT_FDCWD, folder, 0);
        ASSERT_TRUE(open) << folder;
        EXPECT_EQ(stamp_of(open, later(1000 * 24 * 3600 * SECOND_NS)).inode, 0) << folder;
    }
    EXPECT_FALSE(has_stamp("/proc", FolderStamp()));
}

}  // namespace
