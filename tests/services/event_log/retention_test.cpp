// Which configured texts are a number of days to keep events.
#include "services/event_log/retention.h"

#include <gtest/gtest.h>

using services::parse_keep_days;

TEST(Retention, KeepsTheConfiguredDays) {
    EXPECT_EQ(parse_keep_days("1"), 1);
    EXPECT_EQ(parse_keep_days("30"), 30);
    EXPECT_EQ(parse_keep_days("2147483647"), 2147483647);
}

TEST(Retention, KeepsAYearForAnythingThatIsNoNumberFromOneOn) {
    for (const char* text :
         {"", "0", "-3", "+3", "ten", "3 days", " 3", "3.5", "0x10", "2147483648"})
        EXPECT_EQ(parse_keep_days(text), services::DEFAULT_KEEP_DAYS) << text;
}
