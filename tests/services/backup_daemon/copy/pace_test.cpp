// The size of the pieces that go over short, long and slow lines.
#include "services/backup_daemon/copy/pace.h"

#include <gtest/gtest.h>

using namespace services;
using namespace std::chrono_literals;

namespace {

class PaceTest : public testing::Test {
protected:
    void ask(Pace::Clock::duration took) {
        const int answer = pace.ask([&] {
            now += took;
            return 7;
        });
        EXPECT_EQ(answer, 7);
    }

    void send(std::size_t size, Pace::Clock::duration took) {
        pace.send(size, [&] { now += took; });
    }

    Pace::Clock::time_point now{};
    Pace pace{[this] { return now; }};
};

TEST_F(PaceTest, NothingIsKnownAtTheBeginning) {
    EXPECT_EQ(pace.chunk(), CHUNK);
    send(CHUNK, 10ms);
    EXPECT_EQ(pace.chunk(), CHUNK);
}

TEST_F(PaceTest, ShortLineKeepsSmallPieces) {
    ask(9ms);
    send(CHUNK, 10ms);
    EXPECT_EQ(pace.chunk(), CHUNK);
}

TEST_F(PaceTest, LongLineGetsLargePieces) {
    ask(10ms);
    send(CHUNK, 50ms);
    EXPECT_EQ(pace.chunk(), LARGEST_CHUNK);
}

TEST_F(PaceTest, ShortestAnswerTellsTheLine) {
    ask(40ms);
    ask(1ms);
    ask(40ms);
    send(CHUNK, 50ms);
    EXPECT_EQ(pace.chunk(), CHUNK);
}

TEST_F(PaceTest, NoPieceTakesMoreThanTwoSeconds) {
    ask(40ms);
    send(CHUNK, 700ms);
    EXPECT_EQ(pace.chunk(), 2 * CHUNK);
    send(4 * CHUNK, 3s);
    EXPECT_EQ(pace.chunk(), 2 * CHUNK);
    send(2 * CHUNK, 60s);
    EXPECT_EQ(pace.chunk(), CHUNK);
}

TEST_F(PaceTest, RestOfAFileTellsNothingOfTheLineUnlessItIsSlow) {
    ask(40ms);
    send(CHUNK, 50ms);
    send(5, 41ms);
    EXPECT_EQ(pace.chunk(), LARGEST_CHUNK) << "the next file begins as the last went on";
    send(5, 3s);
    EXPECT_EQ(pace.chunk(), CHUNK);
}

TEST_F(PaceTest, LineThatIsKnownFromConnectingIsALongOne) {
    pace.answered(40ms);
    send(CHUNK, 50ms);
    EXPECT_EQ(pace.chunk(), LARGEST_CHUNK);
}

TEST_F(PaceTest, PieceThatTakesNoTimeIsNoTrouble) {
    ask(40ms);
    send(CHUNK, 0ms);
    EXPECT_EQ(pace.chunk(), LARGEST_CHUNK);
}

}  // namespace
