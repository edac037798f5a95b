// The names of a run's files, here and on the share.
#include "services/backup_daemon/run/run_names.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

// What a name may have on most file systems.
constexpr std::size_t LONGEST_NAME = 255;

class RunNamesTest : public testing::Test {
protected:
    static DayEntry entry(const std::string& name, bool alarm = false) {
        return {.name = name, .alarm = alarm};
    }

    const SelectedChannel door{
        .index = 1, .guid = "g1", .recordings = "/rec/door", .folder = "Front door"};
    const ChannelDay day{&door, "2024-03-05"};
    const ShareNames names{"a/b", "fedcba9876543210fedcba9876543210", "42"};
};

TEST_F(RunNamesTest, SourceHasItsNameAsItIs) {
    EXPECT_EQ(source_path(day, entry("08-00-00.a:b")), "2024-03-05/08-00-00.a:b");
    EXPECT_EQ(source_path(day, entry("08-00-00.mp4", true)), "2024-03-05/alarm/08-00-00.mp4");
}

TEST_F(RunNamesTest, CopyHasANameThatEveryServerTakes) {
    EXPECT_EQ(ShareNames::copy_path(day, entry("08-00-00.a:b")),
              "Front door/2024-03-05/08-00-00.a_b");
    EXPECT_EQ(ShareNames::copy_path(day, entry("08-00-00.mp4", true)),
              "Front door/2024-03-05/alarm/08-00-00.mp4");
    EXPECT_EQ(ShareNames::day_folder(day), "Front door/2024-03-05");
}

TEST_F(RunNamesTest, TemporaryFileLiesBesideTheCopyAndIsThisRecordersAndTasks) {
    EXPECT_EQ(names.temporary_path("d/e/08-00-00.mp4"), "d/e/.08-00-00.mp4.fedcba98-42.part");
    EXPECT_EQ(names.temporary_path("08-00-00.mp4"), ".08-00-00.mp4.fedcba98-42.part");
    const std::string identity = "fedcba9876543210fedcba9876543210";
    EXPECT_NE(names.temporary_path("d/e"), ShareNames("a/b", identity, "43").temporary_path("d/e"));
    EXPECT_NE(names.temporary_path("d/e"), ShareNames("a/b", "01", "42").temporary_path("d/e"));
}

TEST_F(RunNamesTest, PathsOnTheShareBeginWithTheDestinationsFolder) {
    EXPECT_EQ(names.on_share("d/e"), "a/b/d/e");
    EXPECT_EQ(ShareNames("", "01", "42").on_share("d/e"), "d/e");
}

TEST_F(RunNamesTest, LongNameLeavesRoomForAllThatIsPutAroundIt) {
    const std::string copy = ShareNames::copy_path(day, entry("08-00-00." + std::string(300, 'x')));
    const std::string temporary =
        ShareNames("", std::string(32, 'f'), "9223372036854775807").temporary_path(copy) + ".json";
    EXPECT_LE(temporary.substr(temporary.rfind('/') + 1).size(), LONGEST_NAME);
    EXPECT_EQ(copy.substr(copy.rfind('/') + 1).size(), 200U);
}

}  // namespace
