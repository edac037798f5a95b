// Tests of the file explorer's switch and its query.
#include "backup/fuse_status.h"

#include "backup/recording_backup_function.h"
#include "platform/known_settings.h"
#include "platform/nvrcfg.h"
#include "tests/backup/daemon_messages.h"
#include "tests/support/fake_platform/platform_test.h"

namespace {

constexpr char ON[] = R"({ "ret_code": 0, "mesg": "Success.", "isFUSE": true })";
constexpr char OFF[] = R"({ "ret_code": 0, "mesg": "Success.", "isFUSE": false })";

class FuseStatus : public PlatformTest {
protected:
    static std::string reply() {
        json_object* reply = nullptr;
        EXPECT_EQ(check_fuse(&reply), 0);
        return printed(reply);
    }
};

TEST_F(FuseStatus, AbsentKeyMeansOn) {
    EXPECT_TRUE(isFileExplorerTurnOn());
    EXPECT_EQ(find_setting("fuse", "fuse_enabled")->otherwise, 1);
    EXPECT_EQ(reply(), ON);
    EXPECT_EQ(fake::effects(), (std::vector<fake::Call>{READ_FUSE_SWITCH, READ_FUSE_SWITCH}));
}

TEST_F(FuseStatus, StoreThatCannotBeReadForAnotherReasonMeansOff) {
    for (const int reason : {NVRCFG_UNAVAILABLE, NVRCFG_BUSY, 0, 7, 9, -8}) {
        fake::reset();
        fake::fail("__nvrcfg_get_key_value", reason);
        EXPECT_FALSE(isFileExplorerTurnOn()) << reason;
        EXPECT_EQ(reply(), OFF) << reason;
    }
}

TEST_F(FuseStatus, ExactlyZeroMeansOff) {
    fake::platform.keys["fuse/fuse_enabled"] = "0";
    EXPECT_FALSE(isFileExplorerTurnOn());
    EXPECT_EQ(reply(), OFF);
}

TEST_F(FuseStatus, AnyOtherValueMeansOn) {
    for (const char* value : {"", "1", "yes", "00", "0 ", " 0", "false", "off"}) {
        fake::platform.keys["fuse/fuse_enabled"] = value;
        EXPECT_TRUE(isFileExplorerTurnOn()) << value;
        EXPECT_EQ(reply(), ON) << value;
    }
}

TEST_F(FuseStatus, ExceptionCountsAsOnAndIsLogged) {
    fake::throw_from("__nvrcfg_get_key_value");
    EXPECT_EQ(reply(), ON);
    EXPECT_EQ(fake::debug_texts(), Strings{"error code = 0\n"});
}

}  // namespace
