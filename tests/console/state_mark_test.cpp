// The mark of the recorder's state lasts a minute at most: the clock alone changes what is so.
#include "console/state_mark.h"

#include <gtest/gtest.h>

#include "tests/support/temporary_state.h"

namespace {

using console::state_mark;

TEST(StateMark, LastsUntilTheMinuteIsOver) {
    const TemporaryState state;
    constexpr long long BEGIN = 1'700'000'040;
    static_assert(BEGIN % 60 == 0);
    const std::string mark = state_mark(BEGIN);
    EXPECT_EQ(state_mark(BEGIN + 59), mark);
    EXPECT_NE(state_mark(BEGIN + 60), mark);
    EXPECT_NE(state_mark(BEGIN - 1), mark);
}

}  // namespace
