// Tests of the error reply, the result codes and the password escape.
#include "cgi/reply.h"

#include "cgi/password_escape.h"
#include "cgi/result_code.h"
#include "tests/support/fake_platform/platform_test.h"

namespace {

class Reply : public PlatformTest {
protected:
    static std::string error(long code, const char* message) {
        json_object* reply = nullptr;
        deal_with_error_code(&reply, code, message);
        return printed(reply);
    }
};

TEST_F(Reply, ErrorHoldsCodeAndMessageAlone) {
    EXPECT_EQ(error(0x950a0005L, "Get task list fail."),
              R"({ "ret_code": 2500460549.0, "mesg": "Get task list fail." })");
    EXPECT_EQ(fake::debug_texts(), Strings{"error code = 2500460549\n"});
}

TEST_F(Reply, ErrorOfCode0HoldsADouble0) {
    EXPECT_EQ(error(0, "Check FUSE fail."), R"({ "ret_code": 0.0, "mesg": "Check FUSE fail." })");
    EXPECT_EQ(fake::debug_texts(), Strings{"error code = 0\n"});
}

TEST_F(Reply, NegativeCodesStandAsTheyAre) {
    EXPECT_EQ(error(CGI_INVALID_VALUE, "m"), R"({ "ret_code": -1794506746.0, "mesg": "m" })");
    EXPECT_EQ(error(-718, "m"), R"({ "ret_code": -718.0, "mesg": "m" })");
    EXPECT_EQ(fake::debug_texts(), (Strings{"error code = -1794506746\n", "error code = -718\n"}));
}

TEST_F(Reply, ErrorTakesThePlaceOfAnEarlierReply) {
    json_object* earlier = json_object_new_string("earlier");
    json_object* reply = earlier;
    deal_with_error_code(&reply, 1, "m");
    EXPECT_EQ(printed(reply), R"({ "ret_code": 1.0, "mesg": "m" })");
    EXPECT_EQ(printed(earlier), "\"earlier\"");
}

TEST_F(Reply, DebugLineGoesToTheDebugFile) {
    error(1, "m");
    ASSERT_EQ(fake::platform.debug.size(), 1U);
    EXPECT_EQ(fake::platform.debug[0].path, "/Zdbglog/.cgi_log/.cgi.log");
    EXPECT_NE(fake::platform.debug[0].function, "");
    EXPECT_GT(fake::platform.debug[0].line, 0);
}

TEST(ResultCode, OwnCodesTravelSignedAndStandUnsigned) {
    const std::pair<int, unsigned> codes[] = {
        {CGI_AUTH_FAIL, 0x950a0001},
        {CGI_URI_ERROR, 0x950a0002},
        {CGI_METHOD_ERROR, 0x950a0003},
        {CGI_INPUT_FORMAT_ERROR, 0x950a0004},
        {CGI_PARSER_JSON_FAIL, 0x950a0005},
        {CGI_INVALID_VALUE, 0x950a0006},
        {CGI_GET_CHANNEL_LIST_FAIL, 0x950a0007},
        {CGI_CMD_EXEC_FAIL, 0x950a0008},
        {CGI_SSCI_RESPONSE_NULL, 0x950a0009},
        {CGI_MOUNT_PERMISSION_DENIED, 0x950a000a},
        {CGI_MOUNT_SERVER_CONNECT_ERROR, 0x950a000b},
        {CGI_MOUNT_UNKNOWN_ERROR, 0x950a000c},
        {CGI_TASK_NOT_FOUND, 0x950a000d},
        {CGI_PASSWORD_EMPTY, 0x950a000e},
        {CGI_MOUNT_CIFS_FILE_ERR, 0x950a000f},
        {CGI_MOUNT_RESULT_FILE_ERR, 0x950a0010},
        {CGI_MOUNT_HOST_DOWN, 0x950a0011},
        {CGI_GET_TASK_SEQUENCE_ERROR, 0x950a0020},
        {CGI_GET_BACKUP_RUNNING_INFO_ERROR, 0x950a0021},
        {CGI_CHANGE_STATUS_ERROR, 0x950a0022},
        {CGI_SSCI_FAIL, 0x950a0023},
    };
    for (const auto& [result, value] : codes) {
        EXPECT_LT(result, 0);
        EXPECT_EQ(static_cast<unsigned>(result), value);
        EXPECT_EQ(reply_code(result), static_cast<long>(value));
    }
}

TEST(ResultCode, ForeignStatusesStandUnchanged) {
    for (const int status : {0, 1, 5, -1, -2, -718, -991, -992, 500})
        EXPECT_EQ(reply_code(status), status);
}

TEST(PasswordEscape, PutsABackslashBeforeEachSpecialCharacter) {
    std::string escaped;
    EXPECT_EQ(check_passwoed_invalid_word(R"(a!b"c'd\e`f $g)", escaped), 0);
    EXPECT_EQ(escaped, R"(a\!b\"c\'d\\e\`f $g)");
    EXPECT_EQ(check_passwoed_invalid_word("plain", escaped), 0);
    EXPECT_EQ(escaped, "plain");
}

TEST(PasswordEscape, RefusesAnEmptyPassword) {
    std::string escaped = "before";
    EXPECT_EQ(check_passwoed_invalid_word("", escaped), CGI_PASSWORD_EMPTY);
    EXPECT_EQ(escaped, "before");
}

}  // namespace
