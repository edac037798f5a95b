// Watches in a loop: when they call, what they survive, and that they end with their owner.
#include "services/event_watch.h"

#include <event2/event.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <stdexcept>

#include "platform/standalone/store/file_handle.h"

namespace {

using namespace std::chrono_literals;
using services::EventWatch;
using standalone::FileHandle;

struct FreeBase {
    void operator()(event_base* base) const { event_base_free(base); }
};

class EventWatchTest : public ::testing::Test {
protected:
    EventWatchTest() {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
        read_end_ = FileHandle(ends[0]);
        write_end_ = FileHandle(ends[1]);
    }

    /// Runs the loop until nothing is watched any more.
    void run() { event_base_dispatch(loop_.get()); }

    void put(char byte) const { EXPECT_EQ(write(write_end_.get(), &byte, 1), 1); }

    char take() const {
        char byte = 0;
        EXPECT_EQ(read(read_end_.get(), &byte, 1), 1);
        return byte;
    }

    std::unique_ptr<event_base, FreeBase> loop_{event_base_new()};
    FileHandle read_end_;
    FileHandle write_end_;
    std::unique_ptr<EventWatch> watch_;
    int calls_ = 0;
};

TEST_F(EventWatchTest, CallsOnceAfterAPause) {
    watch_ = EventWatch::after(loop_.get(), 1ms, [this] { ++calls_; });
    EXPECT_EQ(calls_, 0);
    run();
    EXPECT_EQ(calls_, 1);
}

TEST_F(EventWatchTest, WaitsAsLongAsItWasTold) {
    std::string order;
    std::array<std::unique_ptr<EventWatch>, 3> watches;
    // From the loop, which has one time for all that is done in one go.
    watch_ = EventWatch::after(loop_.get(), 0ms, [&] {
        watches = {EventWatch::after(loop_.get(), 1500ms, [&] { order += "later "; }),
                   EventWatch::after(loop_.get(), 500ms, [&] { order += "sooner "; }),
                   EventWatch::after(loop_.get(), 0ms, [&] { order += "first "; })};
    });
    run();
    EXPECT_EQ(order, "first sooner later ");
}

TEST_F(EventWatchTest, CallsAgainAndAgainUntilItIsDestroyed) {
    watch_ = EventWatch::every(loop_.get(), 1ms, [this] {
        if (++calls_ == 3) watch_.reset();
    });
    run();
    EXPECT_EQ(calls_, 3);
}

TEST_F(EventWatchTest, CallsForEachTimeThatThereIsSomethingToRead) {
    std::string taken;
    watch_ = EventWatch::readable(loop_.get(), read_end_.get(), [&] {
        taken += take();
        if (taken == "ab") watch_.reset();
    });
    put('a');
    put('b');
    run();
    EXPECT_EQ(taken, "ab");
}

TEST_F(EventWatchTest, CallsWhenASignalComes) {
    watch_ = EventWatch::signal(loop_.get(), SIGUSR1, [this] {
        if (++calls_ == 2) return watch_.reset();
        raise(SIGUSR1);
    });
    raise(SIGUSR1);
    run();
    EXPECT_EQ(calls_, 2);
}

TEST_F(EventWatchTest, DestroyedWatchesCallNobody) {
    std::unique_ptr<EventWatch> other;
    watch_ = EventWatch::after(loop_.get(), 1ms, [&] { other.reset(); });
    other = EventWatch::after(loop_.get(), 20ms, [this] { ++calls_; });
    run();
    EXPECT_EQ(calls_, 0);
}

TEST_F(EventWatchTest, AnActionOutlivesTheWatchThatItDestroys) {
    const std::string captured(1000, 'x');
    std::string seen;
    watch_ = EventWatch::after(loop_.get(), 1ms, [this, captured, &seen] {
        watch_.reset();
        seen = captured;
    });
    run();
    EXPECT_EQ(seen, captured);
}

TEST_F(EventWatchTest, WhatAnActionThrowsIsPrintedOnOneLineAndTheLoopGoesOn) {
    testing::internal::CaptureStderr();
    watch_ = EventWatch::every(loop_.get(), 1ms, [this] {
        if (++calls_ == 2) watch_.reset();
        throw std::runtime_error("trouble\n" + std::to_string(calls_));
    });
    run();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "trouble\\n1\ntrouble\\n2\n");
}

TEST_F(EventWatchTest, WhatIsNoStandardExceptionEndsTheProcess) {
    watch_ = EventWatch::after(loop_.get(), 1ms, [] { throw 1; });
    EXPECT_DEATH(run(), "terminate called");
}

TEST_F(EventWatchTest, TroubleThatLastsIsPrintedOnce) {
    testing::internal::CaptureStderr();
    watch_ = EventWatch::every(loop_.get(), 1ms, [this] {
        if (++calls_ == 100) watch_.reset();
        throw std::runtime_error("trouble");
    });
    run();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "trouble\n");
    EXPECT_EQ(calls_, 100);
}

TEST_F(EventWatchTest, WhatIsToHappenOnceIsTriedAgainUntilItSucceeds) {
    testing::internal::CaptureStderr();
    watch_ = EventWatch::after(loop_.get(), 1ms, [this] {
        if (++calls_ < 3) throw std::runtime_error("trouble");
    });
    run();
    EXPECT_EQ(calls_, 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "trouble\n");
}

TEST_F(EventWatchTest, WhatIsToHappenOnceIsNotTriedAgainWhenItHasDestroyedItsWatch) {
    testing::internal::CaptureStderr();
    watch_ = EventWatch::after(loop_.get(), 1ms, [this] {
        ++calls_;
        watch_.reset();
        throw std::runtime_error("trouble");
    });
    run();
    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "trouble\n");
}

TEST_F(EventWatchTest, WhatIsStillThereToReadCallsAgainAfterARest) {
    testing::internal::CaptureStderr();
    const auto begun = std::chrono::steady_clock::now();
    watch_ = EventWatch::readable(loop_.get(), read_end_.get(), [this] {
        if (++calls_ < 2) throw std::runtime_error("trouble");
        EXPECT_EQ(take(), 'a');
        watch_.reset();
    });
    put('a');
    run();
    EXPECT_EQ(calls_, 2);
    EXPECT_GE(std::chrono::steady_clock::now() - begun, EventWatch::RETRY - 10ms);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "trouble\n");
}

TEST_F(EventWatchTest, DestroyedWatchDoesNotComeBackFromItsRest) {
    testing::internal::CaptureStderr();
    watch_ = EventWatch::readable(loop_.get(), read_end_.get(), [this] {
        ++calls_;
        throw std::runtime_error("trouble");
    });
    const auto end = EventWatch::after(loop_.get(), 100ms, [this] { watch_.reset(); });
    put('a');
    run();
    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "trouble\n");
}

TEST_F(EventWatchTest, SignalAfterOneThatCausedTroubleIsTaken) {
    testing::internal::CaptureStderr();
    watch_ = EventWatch::signal(loop_.get(), SIGUSR1, [this] {
        if (++calls_ == 2) return watch_.reset();
        raise(SIGUSR1);
        throw std::runtime_error("trouble");
    });
    raise(SIGUSR1);
    run();
    EXPECT_EQ(calls_, 2);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "trouble\n");
}

}  // namespace
