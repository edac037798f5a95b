// Thousands of random runs, with what must hold of every run looked at after each of their steps.
#include <gtest/gtest.h>

#include <map>

#include "tests/services/backup_daemon/run/random_run.h"

using services::RunOutcome;

namespace {

// To play one run again, begin with its seed.
constexpr unsigned FIRST_SEED = 1;

using Ending = void (RandomRun::*)();

/// Plays so many runs; gives how many ended in which way.
std::map<RunOutcome, int> play(unsigned runs, Ending ending) {
    std::map<RunOutcome, int> outcomes;
    for (unsigned seed = FIRST_SEED; seed < FIRST_SEED + runs; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RandomRun run(seed);
        run.trouble();
        (run.*ending)();
        if (testing::Test::HasFailure()) return outcomes;
        ++outcomes[run.outcome()];
    }
    return outcomes;
}

TEST(RandomRuns, EndWhenTheTroubleIsOver) {
    auto outcomes = play(5000, &RandomRun::calm_down);
    // All ends come about, so all have been looked at.
    EXPECT_GT(outcomes[RunOutcome::success], 1000);
    EXPECT_GT(outcomes[RunOutcome::failed], 500);
    EXPECT_GT(outcomes[RunOutcome::cancelled], 200);
    EXPECT_GT(outcomes[RunOutcome::interrupted], 10);
}

TEST(RandomRuns, EndInTimeWithoutAServer) {
    play(1000, &RandomRun::lose_server);
}

TEST(RandomRuns, EndInTimeWithoutAMemory) {
    play(1000, &RandomRun::lose_memory);
}

}  // namespace
