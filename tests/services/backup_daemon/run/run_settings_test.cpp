// What the configured keys of all runs mean.
#include "services/backup_daemon/run/run_settings.h"

#include "platform/known_settings.h"
#include "platform/standalone/store/key_value_store.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace services;

class RunSettings : public StateTest {
protected:
    static void set(const char* key, const char* text) {
        standalone::Database registry(standalone::registry_database_path(),
                                      standalone::Database::Access::writing);
        standalone::KeyValueStore(registry).set("backup", key, text);
    }
};

TEST_F(RunSettings, TwoRunsGoSideBySideUnlessConfiguredOtherwise) {
    EXPECT_EQ(parallel_limit(), 2);
    EXPECT_EQ(parallel_limit(), find_setting("backup", "max_parallel")->otherwise);
    set("max_parallel", "5");
    EXPECT_EQ(parallel_limit(), 5);
    set("max_parallel", "none");
    EXPECT_EQ(parallel_limit(), 2);
}

TEST_F(RunSettings, TasksMayBeAQuarterOfTheirIntervalLateUnlessConfiguredOtherwise) {
    const KnownSetting* setting = find_setting("backup", "overdue_grace");
    EXPECT_EQ(overdue_grace(), setting->otherwise);
    set("overdue_grace", std::to_string(setting->most).c_str());
    EXPECT_EQ(overdue_grace(), setting->most);
    for (const std::string& text : {std::to_string(setting->most + 1), std::string("0")}) {
        set("overdue_grace", text.c_str());
        EXPECT_EQ(overdue_grace(), 25) << text;
    }
}

TEST_F(RunSettings, CopiesAreReadBackUnlessThatIsSwitchedOff) {
    EXPECT_TRUE(check_reading());
    EXPECT_EQ(find_setting("backup", "check_reading")->otherwise, 1);
    for (const char* text : {"1", "", "no", "00"}) {
        set("check_reading", text);
        EXPECT_TRUE(check_reading()) << text;
    }
    set("check_reading", "0");
    EXPECT_FALSE(check_reading());
}

}  // namespace
