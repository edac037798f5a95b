// A report that answers nothing is refused, and changes nothing.
#include "tests/services/backup_daemon/run/run_plan_fixture.h"

using namespace services;

namespace {

struct Case {
    std::string order;                 ///< how it begins
    std::vector<std::size_t> answers;  ///< places in Report of the reports that answer it
};

constexpr std::size_t DAYS = 1;
constexpr std::size_t ENTRIES = 2;
constexpr std::size_t AT = 3;
constexpr std::size_t NOTED = 4;
constexpr std::size_t COPIED = 5;
constexpr std::size_t REMOVED = 6;
constexpr std::size_t ROOM = 7;
constexpr std::size_t DONE = 8;

const Case CASES[] = {{"days", {DAYS}},
                      {"look", {ENTRIES, AT, DONE}},
                      {"room", {ROOM}},
                      {"copy", {AT, NOTED, COPIED}},
                      {"remove", {AT, REMOVED}}};

/// One of every kind, in their sequence.
std::vector<Report> reports_of_every_kind() {
    return {Ready{},
            Days{{"2024-03-09"}},
            Entries{{{"23-00-00.mp4", false, 5, 5, -1}}},
            At{50},
            Noted{50, "abc"},
            Copied{{50, 5, "abc"}},
            Removed{},
            Room{},
            Done{},
            Failed{FailureKind::other, "it failed"},
            FoundPlace{.below = "elsewhere", .id = "other"}};
}

class RunPlanAnswersTest : public RunPlanTest {
protected:
    RunPlanAnswersTest() {
        world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
        ledger.add("Door/2024-02-01/08-00-00.mp4", "2024-02-01");
        goal.first_kept_day = "2024-03-01";
    }

    std::string memory_text() const {
        std::string text;
        for (const auto& [path, copy] : ledger.copies) text += path + ";";
        for (const auto& [path, made] : ledger.checkpoints)
            text += path + " " + std::to_string(made.offset) + ";";
        return text;
    }

    /// What can be seen from outside.
    std::string state() {
        plan().settle();
        return counts() + " " + memory_text() + (plan().is_busy(1) ? " busy" : " free") +
               (plan().waiting_orders() > 0 ? " more" : "") + (plan().is_over() ? " over" : "");
    }
};

TEST_F(RunPlanAnswersTest, ToAnOrderOfAnotherKindAreRefused) {
    for (const Case& asked : CASES) {
        ASSERT_NE(next_that(asked.order), "");
        for (const Report& report : reports_of_every_kind()) {
            if (std::ranges::count(asked.answers, report.index()) > 0) continue;
            SCOPED_TRACE(asked.order + " answered by report " + std::to_string(report.index()));
            const std::string before = state();
            EXPECT_FALSE(plan().take(1, report));
            EXPECT_EQ(state(), before);
        }
        carry_out();
    }
    EXPECT_EQ(counts(), "1 done, 0 failed, 0 left; 100 of 100 bytes");
}

TEST_F(RunPlanAnswersTest, OfALaneWithoutAnOrderAreRefused) {
    ASSERT_NE(next_that("copy", 2), "");
    const std::string before = state();
    for (const Report& report : reports_of_every_kind()) {
        EXPECT_FALSE(plan().take(1, report)) << "report " << report.index();
        EXPECT_EQ(state(), before);
    }
}

TEST_F(RunPlanAnswersTest, ThatComeTwiceAreRefused) {
    EXPECT_EQ(next().substr(0, 4), "days");
    say(Days{{"2024-03-05"}});
    EXPECT_FALSE(plan().take(1, Days{{"2024-03-05"}}));
    ASSERT_NE(next_that("copy"), "");
    say(Copied{{100, 1, ""}});
    EXPECT_FALSE(plan().take(1, Copied{{100, 1, ""}}));
    EXPECT_EQ(counts(), "1 done, 0 failed, 0 left; 100 of 100 bytes");
    EXPECT_EQ(ledger.recorded.size(), 1U);
}

TEST_F(RunPlanAnswersTest, OfALaneThatWasLostAreRefused) {
    ASSERT_NE(next_that("copy"), "");
    plan().lose(1);
    EXPECT_FALSE(plan().take(1, Copied{{100, 1, ""}}));
    EXPECT_EQ(counts(), "0 done, 0 failed, 1 left; 0 of 100 bytes");
    EXPECT_TRUE(ledger.recorded.empty());
}

TEST_F(RunPlanAnswersTest, SignOfLifeOfARemovalKeepsTheOrder) {
    ASSERT_NE(next_that("remove"), "");
    const std::string before = state();
    say(At{0});
    EXPECT_EQ(state(), before);
}

}  // namespace
