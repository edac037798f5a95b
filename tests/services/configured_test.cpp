// What configured texts mean to the services.
#include "services/configured.h"

#include "platform/standalone/store/key_value_store.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace services;

class Configured : public StateTest {
protected:
    static int number_of(const char* text) {
        standalone::Database registry(standalone::registry_database_path(),
                                      standalone::Database::Access::writing);
        standalone::KeyValueStore(registry).set("section", "key", text);
        return configured_number("section", "key", 7);
    }
};

TEST_F(Configured, IsReadAfresh) {
    EXPECT_EQ(number_of("1"), 1);
    EXPECT_EQ(number_of("30"), 30);
    EXPECT_EQ(number_of("2147483647"), 2147483647);
    EXPECT_EQ(configured_text("section", "key"), "2147483647");
}

TEST_F(Configured, AnythingThatIsNoNumberFromOneOnMeansTheDefault) {
    for (const char* text : {"", "0", "-3", "+3", "ten", "3 days", " 3", "3.5", "0x10",
                             "2147483648", "99999999999999999999"})
        EXPECT_EQ(number_of(text), 7) << text;
}

TEST_F(Configured, AnAbsentKeyIsEmptyAndTheDefault) {
    EXPECT_EQ(configured_text("section", "absent"), "");
    EXPECT_EQ(configured_number("section", "absent", 7), 7);
}

TEST(ConfiguredWithoutAStore, MeansTheDefault) {
    setenv("RECORDER_STATE", "/nonexistent/state", 1);
    EXPECT_EQ(configured_text("section", "key"), "");
    EXPECT_EQ(configured_number("section", "key", 7), 7);
    unsetenv("RECORDER_STATE");
}

TEST_F(Configured, AnAbsentKeyIsEmptyAlsoWhereAWrongEmptyTextWouldCostSomething) {
    number_of("some");
    EXPECT_EQ(configured_text_or_throw("section", "key"), "some");
    EXPECT_EQ(configured_text_or_throw("section", "absent"), "");
}

TEST(ConfiguredWithoutAStore, IsAnErrorWhereAWrongEmptyTextWouldCostSomething) {
    setenv("RECORDER_STATE", "/nonexistent/state", 1);
    EXPECT_THROW(configured_text_or_throw("section", "key"), std::runtime_error);
    unsetenv("RECORDER_STATE");
}

}  // namespace
