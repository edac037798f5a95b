// The recorder's identity: random, made once, given to older state folders as well.
#include "platform/standalone/store/recorder_identity.h"

#include "platform/standalone/store/state_folder.h"
#include "tests/support/older_state.h"

namespace {

using namespace standalone;

std::string identity() {
    Database registry(registry_database_path(), Database::Access::reading);
    return recorder_identity(registry);
}

TEST(RecorderIdentity, HasThirtyTwoHexadecimalDigitsAndStaysWhenTheStateIsMadeAgain) {
    const TemporaryState state;
    const std::string made = identity();
    EXPECT_EQ(made.size(), 32U);
    EXPECT_EQ(made.find_first_not_of("0123456789abcdef"), std::string::npos);
    make_state();
    EXPECT_EQ(identity(), made);
}

TEST(RecorderIdentity, IsNoOtherRecorders) {
    std::string first;
    {
        const TemporaryState state;
        first = identity();
    }
    const TemporaryState other;
    EXPECT_NE(identity(), first);
}

TEST(RecorderIdentity, IsGivenToAnOlderStateFolder) {
    const OlderState state;
    make_state();
    EXPECT_EQ(identity().size(), 32U);
}

TEST(RecorderIdentity, SaysSoWhenItIsLost) {
    const TemporaryState state;
    Database registry(registry_database_path(), Database::Access::writing);
    registry.run("DELETE FROM recorder");
    EXPECT_THROW(recorder_identity(registry), std::runtime_error);
}

}  // namespace
