// Which dates are believed when copies are to go by their age, and how a doubt ends.
#include "services/backup_daemon/run/date_trust.h"

#include <gtest/gtest.h>

#include "platform/standalone/store/calendar.h"

using namespace services;

namespace {

/// So many days after 2024-01-01.
std::string day(standalone::DayNumber number) {
    return standalone::day_text(standalone::day_number("2024-01-01") + number);
}

const TaskDate BELIEVED{.trusted = day(0)};

/// Runs on these days, one after the other; gives what is made of the last.
DateJudgement runs_on(std::initializer_list<standalone::DayNumber> days,
                      TaskDate known = BELIEVED) {
    DateJudgement last;
    for (const standalone::DayNumber number : days) {
        last = judge_date(known, "", day(number));
        known = last.known;
    }
    return last;
}

TEST(DateTrust, DateIsBelievedUpTo31DaysAfterTheLastRun) {
    for (const standalone::DayNumber number : {0, 1, 31}) {
        const DateJudgement made = runs_on({number});
        EXPECT_EQ(made.doubt, "");
        EXPECT_EQ(made.known, TaskDate{.trusted = day(number)});
    }
    const DateJudgement jumped = runs_on({32});
    EXPECT_TRUE(
        jumped.doubt.starts_with("the date 2024-02-02 is doubted: it is 32 days after the "
                                 "last run's, 2024-01-01; "))
        << jumped.doubt;
    EXPECT_TRUE(jumped.doubt.ends_with("until 2024-03-05")) << jumped.doubt;
    EXPECT_EQ(jumped.known, (TaskDate{day(0), day(32), day(32)}));
}

TEST(DateTrust, DateThatIsSetBackIsBelievedAndTheNewestOneKept) {
    const DateJudgement made = runs_on({-10'000});
    EXPECT_EQ(made.doubt, "");
    EXPECT_EQ(made.known, BELIEVED);
}

TEST(DateTrust, ClockThatIsSetRightEndsTheDoubtAtOnce) {
    const DateJudgement made = runs_on({2000, 2001, 3});
    EXPECT_EQ(made.doubt, "");
    EXPECT_EQ(made.known, TaskDate{.trusted = day(3)});
}

TEST(DateTrust, RunsUnderItForMoreThan31DaysEndTheDoubt) {
    TaskDate known = BELIEVED;
    for (standalone::DayNumber number = 400; number <= 431; ++number) {
        const DateJudgement made = judge_date(known, "", day(number));
        EXPECT_NE(made.doubt, "") << number;
        known = made.known;
    }
    const DateJudgement made = judge_date(known, "", day(432));
    EXPECT_EQ(made.doubt, "");
    EXPECT_EQ(made.known, TaskDate{.trusted = day(432)});
}

TEST(DateTrust, RunsOnceAMonthEndTheDoubtAsWell) {
    EXPECT_NE(runs_on({400, 431}).doubt, "");
    EXPECT_EQ(runs_on({400, 431, 461}).doubt, "");
}

TEST(DateTrust, FurtherJumpBeginsTheDoubtAnew) {
    const DateJudgement forward = runs_on({400, 410, 450});
    EXPECT_EQ(forward.known, (TaskDate{day(0), day(450), day(450)}));
    EXPECT_NE(forward.doubt, "");
    const DateJudgement back = runs_on({400, 410, 300});
    EXPECT_EQ(back.known, (TaskDate{day(0), day(300), day(300)}));
    EXPECT_NE(runs_on({400, 10'000, 400, 432}).doubt, "") << "two clocks in turn";
}

TEST(DateTrust, FirstRunIsJudgedByTheNewestRecording) {
    EXPECT_EQ(judge_date({}, day(0), day(31)).doubt, "");
    EXPECT_EQ(judge_date({}, day(100), day(0)).doubt, "");
    const DateJudgement made = judge_date({}, day(0), day(32));
    EXPECT_NE(made.doubt.find("32 days after the newest recording's, 2024-01-01"),
              std::string::npos);
    EXPECT_EQ(made.known, (TaskDate{"", day(32), day(32)}));
    EXPECT_EQ(judge_date(made.known, day(30), day(33)).doubt, "") << "it records again";
}

TEST(DateTrust, FirstRunWithoutRecordingsIsDoubtedForAMonth) {
    EXPECT_NE(judge_date({}, "", day(0)).doubt.find("no recording to tell it by"),
              std::string::npos);
    EXPECT_NE(runs_on({0, 20, 31}, {}).doubt, "");
    EXPECT_EQ(runs_on({0, 20, 32}, {}).doubt, "");
}

}  // namespace
