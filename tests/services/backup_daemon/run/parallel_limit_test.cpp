// Which configured texts are a limit of parallel runs.
#include "services/backup_daemon/run/parallel_limit.h"

#include <gtest/gtest.h>

using services::parse_parallel_limit;

TEST(ParallelLimit, IsTheConfiguredNumber) {
    EXPECT_EQ(parse_parallel_limit("1"), 1);
    EXPECT_EQ(parse_parallel_limit("16"), 16);
}

TEST(ParallelLimit, IsTwoForAnythingThatIsNoNumberFromOneOn) {
    for (const char* text : {"", "0", "-3", "two", "3 tasks", " 3", "3.5", "99999999999999999999"})
        EXPECT_EQ(parse_parallel_limit(text), services::DEFAULT_PARALLEL_LIMIT) << text;
}
