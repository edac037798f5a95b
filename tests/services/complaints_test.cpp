// Lines on standard error: at once, then seldom.
#include "services/complaints.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using services::Complaints;

namespace {

class ComplaintsTest : public testing::Test {
protected:
    std::string printed(const std::string& text) {
        testing::internal::CaptureStderr();
        complaints.print(text, now);
        return testing::internal::GetCapturedStderr();
    }

    Complaints complaints;
    Complaints::Time now = Complaints::Time() + 24h;
};

TEST_F(ComplaintsTest, TextIsPrintedAsOneLine) {
    EXPECT_EQ(printed("the disk\nis full"), "the disk\\nis full\n");
}

TEST_F(ComplaintsTest, SameLineIsPrintedOnceInTenMinutesForHours) {
    int lines = 0;
    for (int second = 0; second < 3 * 60 * 60; ++second) {
        lines += printed("full").empty() ? 0 : 1;
        now += 1s;
    }
    EXPECT_EQ(lines, 18);
}

TEST_F(ComplaintsTest, LinesThatTakeTurnsAreTwoLines) {
    int lines = 0;
    for (int second = 0; second < 600; ++second) {
        lines += printed("full").empty() ? 0 : 1;
        lines += printed("locked").empty() ? 0 : 1;
        now += 1s;
    }
    EXPECT_EQ(lines, 2);
}

TEST_F(ComplaintsTest, NewLineIsPrintedHoweverManyThereWere) {
    for (int number = 0; number < 1000; ++number)
        EXPECT_EQ(printed(std::to_string(number)), std::to_string(number) + "\n");
}

}  // namespace
