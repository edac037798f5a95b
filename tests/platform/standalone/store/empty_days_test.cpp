// Which days have an empty folder, and what its stamp tells of that later.
#include "platform/standalone/store/empty_days.h"

#include <fcntl.h>

#include "tests/platform/standalone/store/index_fixture.h"

using namespace standalone;

namespace {

namespace fs = std::filesystem;

constexpr char DAY[] = "2024-03-01";

class EmptyDaysTest : public IndexTest {
protected:
    std::optional<FolderStamp> look(const Moment& clock = later()) const {
        return EmptyDays(channel_).look(DAY, clock);
    }

    std::string day_ = channel_ + "/" + DAY;
};

TEST_F(EmptyDaysTest, FolderWithNothingInItIsEmptyAndHasItsStamp) {
    if (!spares_reading()) GTEST_SKIP() << "an unknown file system";
    fs::create_directories(day_);
    const Moment clock = later();
    const auto stamp = look(clock);
    ASSERT_TRUE(stamp);
    EXPECT_EQ(*stamp, stamp_of(open_folder(AT_FDCWD, day_.c_str(), 0), clock));
    EXPECT_TRUE(has_stamp(day_, *stamp));
    EXPECT_TRUE(EmptyDays(channel_).is_as_it_was(DAY, *stamp));
}

TEST_F(EmptyDaysTest, FolderIsNoLongerAsItWasWhenAnythingHasComeOrTakenItsPlace) {
    if (!spares_reading()) GTEST_SKIP() << "an unknown file system";
    fs::create_directories(day_);
    const auto stamp = look();
    ASSERT_TRUE(stamp);
    const EmptyDays days(channel_);
    EXPECT_FALSE(days.is_as_it_was("2024-03-02", *stamp)) << "nothing";
    let_time_pass();
    fs::rename(day_, channel_ + "/aside");
    fs::create_directory_symlink("aside", day_);
    EXPECT_FALSE(days.is_as_it_was(DAY, *stamp)) << "a link";
    fs::remove(day_);
    fs::rename(channel_ + "/aside", day_);
    write_file(day_ + "/12-00-00.mp4", "x");
    EXPECT_FALSE(days.is_as_it_was(DAY, *stamp)) << "a recording";
    EXPECT_FALSE(days.is_as_it_was(DAY, FolderStamp())) << "a stamp that tells nothing";
}

TEST_F(EmptyDaysTest, WhateverLiesInItMakesItADayToLookAt) {
    for (const std::string name : {"12-00-00.mp4", "notes.txt", ".hidden", "alarm/12-00-00.mp4"}) {
        fs::create_directories(day_);
        write_file(day_ + "/" + name, "x");
        EXPECT_FALSE(look()) << name;
        fs::remove_all(day_);
    }
    fs::create_directories(day_ + "/alarm");
    EXPECT_FALSE(look()) << "a recording in alarm/ would not change the day's stamp";
}

TEST_F(EmptyDaysTest, FolderOfManyNamesIsNotEmpty) {
    fs::create_directories(day_);
    for (int name = 0; name < 500; ++name) write_file(day_ + "/" + std::to_string(name), "");
    EXPECT_FALSE(look());
    fs::remove_all(day_);
    fs::create_directories(day_);
    EXPECT_TRUE(look());
}

TEST_F(EmptyDaysTest, WhatIsNoFolderIsNoEmptyDay) {
    EXPECT_FALSE(look()) << "nothing";
    write_file(day_, "x");
    EXPECT_FALSE(look()) << "a file";
    fs::remove(day_);
    fs::create_directories(channel_ + "/other");
    fs::create_directory_symlink("other", day_);
    EXPECT_FALSE(look()) << "a link";
    EXPECT_FALSE(EmptyDays(channel_ + "/none").look(DAY, later())) << "no channel";
    EXPECT_EQ(EmptyDays(channel_ + "/none").channel().st_ino, 0U);
}

TEST_F(EmptyDaysTest, FolderThatHasJustChangedIsEmptyAndItsStampTellsNothing) {
    fs::create_directories(day_);
    const auto stamp = look(since_change(day_, SECOND_NS));
    ASSERT_TRUE(stamp);
    EXPECT_EQ(stamp->inode, 0);
    EXPECT_FALSE(has_stamp(day_, *stamp));
}

TEST_F(EmptyDaysTest, ChannelIsTheFolderThatItsDaysAreLookedForIn) {
    const EmptyDays days(channel_);
    struct stat found {};
    ASSERT_EQ(stat(channel_.c_str(), &found), 0);
    EXPECT_EQ(days.channel().st_dev, found.st_dev);
    EXPECT_EQ(days.channel().st_ino, found.st_ino);
    fs::rename(channel_, channel_ + "-aside");
    fs::create_directories(day_);
    EXPECT_FALSE(days.look(DAY, later())) << "another folder of its name";
}

}  // namespace
