// A run's figures: they come back as written, the unknown time left as unknown.
#include "services/backup_daemon/memory/progress_store.h"

#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;

RunFigures some_figures() {
    return {.bytes_planned = 9'000'000'000,
            .bytes_done = 8'000'000'000,
            .percent = 88.8,
            .rate = 1234567.5,
            .files_done = 3,
            .files_left = 4,
            .files_failed = 5,
            .seconds_left = 6,
            .message = "no route to hóst",
            .time_ms = 1'709'297'110'123};
}

class ProgressStoreTest : public MemoryTest {
protected:
    ProgressStore store_{memory_.runs};
};

TEST_F(ProgressStoreTest, FiguresComeBackAsTheyWereWritten) {
    EXPECT_FALSE(store_.find("1"));
    store_.set("1", some_figures());
    const auto found = store_.find("1");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->bytes_planned, 9'000'000'000);
    EXPECT_EQ(found->bytes_done, 8'000'000'000);
    EXPECT_EQ(found->percent, 88.8);
    EXPECT_EQ(found->rate, 1234567.5);
    EXPECT_EQ(found->files_done, 3);
    EXPECT_EQ(found->files_left, 4);
    EXPECT_EQ(found->files_failed, 5);
    EXPECT_EQ(found->seconds_left, 6);
    EXPECT_EQ(found->message, "no route to hóst");
    EXPECT_EQ(found->time_ms, 1'709'297'110'123);
}

TEST_F(ProgressStoreTest, UnknownTimeLeftIsNotNone) {
    RunFigures figures = some_figures();
    figures.seconds_left = {};
    store_.set("1", figures);
    EXPECT_FALSE(store_.find("1")->seconds_left);
    EXPECT_EQ(count("run_progress WHERE seconds_left IS NULL"), 1);
    figures.seconds_left = 0;
    store_.set("1", figures);
    EXPECT_EQ(store_.find("1")->seconds_left, 0);
}

TEST_F(ProgressStoreTest, NewerFiguresTakeThePlaceOfTheTasksOlderOnes) {
    RunFigures figures = some_figures();
    store_.set("1", figures);
    store_.set("2", figures);
    figures.files_done = 7;
    store_.set("1", figures);
    EXPECT_EQ(store_.find("1")->files_done, 7);
    EXPECT_EQ(store_.find("2")->files_done, 3);
    EXPECT_EQ(count("run_progress"), 2);
}

/// Times of what is kept of the task's rates.
std::vector<long long> kept_rates(standalone::Database& database) {
    standalone::Statement row = database.prepare("SELECT time FROM run_rate WHERE taskID = 1");
    std::vector<long long> times;
    while (row.step()) times.push_back(row.integer(0));
    return times;
}

TEST_F(ProgressStoreTest, ARateIsKeptEachFiveSecondsForTwentyMinutes) {
    RunFigures figures = some_figures();
    for (figures.time_ms = 1'000'000; figures.time_ms <= 3'000'000; figures.time_ms += 1000)
        store_.set("1", figures);
    const auto times = kept_rates(memory_.runs);
    ASSERT_EQ(times.size(), 240U);
    EXPECT_EQ(times.back(), 3000);
    for (std::size_t at = 1; at < times.size(); ++at) EXPECT_EQ(times[at] - times[at - 1], 5);
}

TEST_F(ProgressStoreTest, AClockThatWasSetBackLeavesNoRatesAhead) {
    RunFigures figures = some_figures();
    for (const long long time_ms : {5'000'000, 1'000'000}) {
        figures.time_ms = time_ms;
        store_.set("1", figures);
    }
    EXPECT_EQ(kept_rates(memory_.runs), (std::vector<long long>{1000}));
}

}  // namespace
