// How long a look is relied on.
#include "services/last_look.h"

#include <gtest/gtest.h>

namespace {

using services::LastLook;
using services::NEVER;

TEST(LastLook, NoneHoldsBeforeTheFirst) {
    EXPECT_FALSE(LastLook<int>().holds(0, 0));
}

TEST(LastLook, HoldsForWhatItHasSeenUntilItsTimeComes) {
    LastLook<int> look;
    look.note(7, 100, 200);
    EXPECT_TRUE(look.holds(7, 100));
    EXPECT_TRUE(look.holds(7, 199));
    EXPECT_FALSE(look.holds(7, 200));
    EXPECT_FALSE(look.holds(8, 150));
    look.note(8, 200, NEVER);
    EXPECT_TRUE(look.holds(8, NEVER - 1));
}

TEST(LastLook, HoldsForNoTimeBeforeItsOwn) {
    LastLook<int> look;
    look.note(7, 100, 200);
    EXPECT_FALSE(look.holds(7, 99));
    EXPECT_TRUE(look.holds(7, 100)) << "the clock was put right again";
}

}  // namespace
