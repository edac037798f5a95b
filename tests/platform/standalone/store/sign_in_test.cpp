// Who has failed to sign in: who has to wait, and for how long that is kept.
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/sign_in_store.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

constexpr long long NOW = 1'700'000'000'000;
constexpr long long HOUR = 3'600'000;
constexpr long long DAYS_30 = 30 * 24 * HOUR;

class SignInTest : public StateTest {
protected:
    void fail(const Caller& caller, int times, long long now = NOW) {
        for (int time = 0; time < times; ++time) store_.note_failure(caller, now);
    }

    long long rows() {
        Statement row = database_.prepare("SELECT count(*) FROM sign_in");
        row.step();
        return row.integer(0);
    }

    Database database_{registry_database_path(), Database::Access::writing};
    SignInStore store_{database_};
};

TEST_F(SignInTest, FailuresAreForgottenAnHourAfterTheLastOne) {
    const Caller caller{.account = "a", .address = "192.0.2.1"};
    fail(caller, 40);
    fail(caller, 1, NOW + HOUR - 1);
    EXPECT_EQ(store_.wait(caller, NOW + HOUR), SignInStore::LONGEST_ADDRESS_WAIT - 1);
    EXPECT_FALSE(store_.note_failure(caller, NOW + 2 * HOUR - 2));
    fail(caller, 3, NOW + 3 * HOUR - 2);
    EXPECT_EQ(store_.wait(caller, NOW + 3 * HOUR - 2), 0);
    EXPECT_TRUE(store_.note_failure(caller, NOW + 3 * HOUR - 2));
}

TEST_F(SignInTest, FailuresThatAreForgottenAreNoLongerStored) {
    for (const char* name : {"a", "b", "c"}) fail({.account = name, .address = "192.0.2.1"}, 1);
    EXPECT_EQ(rows(), 3 + 1);
    fail({.account = "d", .address = "127.0.0.1"}, 1, NOW + HOUR - 1);
    EXPECT_EQ(rows(), 3 + 1 + 1);
    fail({.account = "d", .address = "127.0.0.1"}, 1, NOW + HOUR);
    EXPECT_EQ(rows(), 1);
}

TEST_F(SignInTest, WhereAnAccountHasSignedInIsKnownForThirtyDays) {
    const Caller caller{.account = "a", .address = "192.0.2.1"};
    store_.note_success(caller, NOW);
    fail({.account = "a", .address = "127.0.0.1"}, 5, NOW + DAYS_30 - 1);
    EXPECT_EQ(store_.wait(caller, NOW + DAYS_30 - 1), 0);
    EXPECT_GT(store_.wait(caller, NOW + DAYS_30), 0);
    EXPECT_EQ(rows(), 1 + 1);
    fail({.account = "a", .address = "127.0.0.1"}, 1, NOW + DAYS_30);
    EXPECT_EQ(rows(), 1);
}

TEST_F(SignInTest, AHouseholdsAddressesOfVersionSixAreOne) {
    for (const char* address :
         {"2001:db8:1:2::1", "2001:db8:1:2::2", "2001:DB8:1:2:3:4:5:6", "2001:0db8:0001:0002::"})
        fail({.account = address, .address = address}, 1);
    EXPECT_GT(store_.wait({.account = "x", .address = "2001:db8:1:2:ffff::"}, NOW), 0);
    EXPECT_EQ(store_.wait({.account = "x", .address = "2001:db8:1:3::1"}, NOW), 0);
    store_.note_success({.account = "a", .address = "2001:db8:1:3::1"}, NOW);
    fail({.account = "a", .address = "127.0.0.1"}, 5);
    EXPECT_EQ(store_.wait({.account = "a", .address = "2001:db8:1:3::2"}, NOW), 0);
    EXPECT_GT(store_.wait({.account = "a", .address = "2001:db8:1:4::2"}, NOW), 0);
}

TEST_F(SignInTest, AddressesOfVersionFourAreEachTheirOwn) {
    for (const char* name : {"a", "b", "c", "d"})
        fail({.account = name, .address = "::ffff:192.0.2.1"}, 1);
    EXPECT_GT(store_.wait({.account = "x", .address = "::ffff:192.0.2.1"}, NOW), 0);
    EXPECT_EQ(store_.wait({.account = "x", .address = "::ffff:192.0.2.2"}, NOW), 0);
    EXPECT_EQ(store_.wait({.account = "x", .address = "192.0.2.2"}, NOW), 0);
}

}  // namespace
