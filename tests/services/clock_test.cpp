// The machine's clock: two readings, and alarms that ring once unless they are taken back.
#include "services/clock.h"

#include <event2/event.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

using services::LoopClock;
using namespace std::chrono_literals;

namespace {

struct FreeLoop {
    void operator()(event_base* loop) const { event_base_free(loop); }
};

class LoopClockTest : public testing::Test {
protected:
    /// Until no alarm is set any more.
    void run_loop() { event_base_loop(loop.get(), 0); }

    std::unique_ptr<event_base, FreeLoop> loop{event_base_new()};
    LoopClock clock{loop.get()};
    std::string rung;
};

TEST_F(LoopClockTest, AlarmsRingInTheirOrderAndOnce) {
    std::array<std::unique_ptr<services::Clock::Alarm>, 3> alarms;
    // From the loop, which has one time for all that is done in one go.
    const auto first = clock.after(0ms, [&] {
        alarms = {clock.after(30ms, [&] { rung += "late "; }),
                  clock.after(10ms, [&] { rung += "soon "; }),
                  clock.after(0ms, [&] { rung += "now "; })};
    });
    EXPECT_EQ(rung, "");
    run_loop();
    EXPECT_EQ(rung, "now soon late ");
}

TEST_F(LoopClockTest, DestroyedAlarmDoesNotRing) {
    auto one = clock.after(0ms, [&] { rung += "one "; });
    const auto two = clock.after(0ms, [&] { rung += "two "; });
    one.reset();
    run_loop();
    EXPECT_EQ(rung, "two ");
}

TEST_F(LoopClockTest, AlarmMayBeDestroyedByWhatItCalls) {
    std::unique_ptr<services::Clock::Alarm> alarm;
    const std::string word = "long enough to stand on the heap";
    alarm = clock.after(0ms, [&, word] {
        alarm.reset();
        rung += word;
    });
    run_loop();
    EXPECT_EQ(rung, word);
}

TEST_F(LoopClockTest, ReadingsAreThoseOfTheMachinesTwoClocks) {
    using std::chrono::floor;
    using std::chrono::milliseconds;
    const auto steady = std::chrono::steady_clock::now().time_since_epoch();
    const auto wall = std::chrono::system_clock::now().time_since_epoch();
    EXPECT_GE(clock.steady(), floor<milliseconds>(steady));
    EXPECT_LT(clock.steady(), steady + 1h);
    EXPECT_GE(clock.wall(), floor<milliseconds>(wall));
    EXPECT_LT(clock.wall(), wall + 1h);
}

}  // namespace
