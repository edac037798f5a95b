// Which parameters make a log query.
#include "services/event_log/log_query.h"

#include <gtest/gtest.h>

using services::BadQuery;
using services::parse_log_query;

TEST(LogQuery, AbsentParametersMeanTheNewestHundredOfAll) {
    const auto query = parse_log_query({});
    EXPECT_TRUE(query.sub_types.empty());
    EXPECT_EQ(query.max_results, 100);
}

TEST(LogQuery, ReadsListAndLimit) {
    const auto query =
        parse_log_query({{"sub_type", "8981,8983,25092"}, {"max_results", "10000"}, {"x", "y"}});
    EXPECT_EQ(query.sub_types, (std::vector<unsigned>{8981, 8983, 25092}));
    EXPECT_EQ(query.max_results, 10000);
}

TEST(LogQuery, TakesTheLeastAndTheMost) {
    const auto query = parse_log_query({{"sub_type", "0,65535"}, {"max_results", "1"}});
    EXPECT_EQ(query.sub_types, (std::vector<unsigned>{0, 65535}));
    EXPECT_EQ(query.max_results, 1);
}

TEST(LogQuery, RefusesWhatIsNoListOfSubTypes) {
    for (const char* text : {"", ",", "1,", ",1", "1,,2", "a", "1 ", "0x10", "-1", "65536", "1;2"})
        EXPECT_THROW(parse_log_query({{"sub_type", text}}), BadQuery) << text;
}

TEST(LogQuery, RefusesLimitsOutOfBounds) {
    for (const char* text : {"", "0", "-1", "10001", "99999999999999999999", "ten", "1.5"})
        EXPECT_THROW(parse_log_query({{"max_results", text}}), BadQuery) << text;
}
