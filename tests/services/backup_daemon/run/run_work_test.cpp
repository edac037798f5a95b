// When a recording is sent, and what its copier is told of what stands on the share.
#include "services/backup_daemon/run/run_work.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

constexpr long long SECOND = 1'000'000'000;
const std::string RECORDER = "0123456789abcdef0123456789abcdef";

class RunWorkTest : public testing::Test {
protected:
    bool is_needed() const { return need_of(goal, entry, &copy, true) == Need::copy; }
    CopyJob job(const CopiedFile* recorded) const {
        return copy_work(goal, names, where, entry, recorded).job;
    }

    RunGoal goal;
    const ShareNames names{"store", RECORDER, "7"};
    const SelectedChannel channel{};
    const ChannelDay where{&channel, "2024-03-05"};
    DayEntry entry{.name = "08-00-00.mp4",
                   .size = 5,
                   .modified_ns = 9,
                   .remote = {.size = 5, .modified_ns = 100 * SECOND}};
    CopiedFile copy{.path = "Door/2024-03-05/08-00-00.mp4",
                    .day = "2024-03-05",
                    .size = 5,
                    .modified_ns = 9,
                    .sha256 = "ab"};
};

TEST_F(RunWorkTest, CopyOfUnknownTimeIsKnownByItsSize) {
    EXPECT_FALSE(is_needed());
    entry.remote.size = 6;
    EXPECT_TRUE(is_needed());
}

TEST_F(RunWorkTest, CopyThatWasTouchedIsLookedAt) {
    for (const long long as_good_as : {98, 100, 102}) {
        copy.share_modified_ns = as_good_as * SECOND;
        EXPECT_FALSE(is_needed()) << as_good_as;
    }
    for (const long long other : {0, 97, 103}) {
        copy.share_modified_ns = other * SECOND;
        EXPECT_TRUE(is_needed()) << other;
    }
    EXPECT_EQ(need_of(goal, entry, &copy, false), Need::nothing)
        << "nobody has looked at the share";
    copy.removed = true;
    EXPECT_FALSE(is_needed()) << "it made room";
}

TEST_F(RunWorkTest, CopierIsToldTheRecordedState) {
    copy.share_modified_ns = 77;
    const CopyJob told = job(&copy);
    ASSERT_TRUE(told.recorded);
    EXPECT_EQ(told.recorded->size, 5);
    EXPECT_EQ(told.recorded->modified_ns, 77);
    EXPECT_EQ(told.recorded->sha256, "ab");
    EXPECT_FALSE(job(nullptr).recorded);
    EXPECT_EQ(told.claim, ShareNames("store", RECORDER, "8").claim()) << "of any task";
    EXPECT_NE(told.claim, ShareNames("store", "f" + RECORDER.substr(1), "7").claim());
}

TEST_F(RunWorkTest, CopyIsFreshWhereTheListingHadNothing) {
    EXPECT_FALSE(job(nullptr).fresh);
    entry.remote.size = -1;
    EXPECT_TRUE(job(nullptr).fresh);
}

TEST_F(RunWorkTest, DoubtedCopyIsComparedAndNothingIsBegunFromIt) {
    EXPECT_FALSE(job(&copy).recorded->doubted);
    copy.doubted = true;
    for (const bool asked_share : {false, true})
        EXPECT_EQ(need_of(goal, entry, &copy, asked_share), Need::comparison);
    EXPECT_TRUE(job(&copy).recorded->doubted);
    EXPECT_EQ(job(&copy).recorded->sha256, "ab");
    EXPECT_EQ(job(&copy).recorded->size, 5);
    EXPECT_EQ(job(&copy).recorded->source_modified_ns, 9);
    copy.removed = true;
    EXPECT_EQ(need_of(goal, entry, &copy, true), Need::nothing);
}

TEST_F(RunWorkTest, DoubtedCopyIsSentAnewWhereItCannotBeEqual) {
    copy.doubted = true;
    entry.remote.size = 4;
    EXPECT_EQ(need_of(goal, entry, &copy, true), Need::copy);
    entry.modified_ns = 10;
    EXPECT_EQ(need_of(goal, entry, &copy, false), Need::copy);
}

}  // namespace
