// Tests of the log query: what is asked of the log service, what of its reply reaches the client.
#include "backup/task_log.h"

#include "backup/recording_backup_function.h"
#include "tests/support/fake_platform/platform_test.h"

namespace {

using Calls = std::vector<fake::Call>;

constexpr char FAILED[] = "Get task log fail.";
constexpr char EVENT_IDS[] =
    "strEvtID:1644429313,1644429314,1644429315,1644429316,1644429317,1644429318,1644429319,"
    "1644429320,1644429321,1644429322,1644429323,1644429324,1644429325\n";

const fake::Call QUERY = {
    "ssci_GET_request",
    {"127.0.0.1", "10150", "/logs/logs", "max_results=100&sub_type=8981,8983,25092", "5", "false",
     "false", "0", "(null)"}};

class TaskLog : public OperationTest {
protected:
    int query(const std::string& answer) {
        fake::platform.debug.clear();
        fake::answer("ssci_GET_request", answer);
        return query();
    }

    int query() { return finish(get_backup_task_log(&reply)); }
};

TEST_F(TaskLog, AsksForTheNewestHundredOfTheThreeSubTypes) {
    query("{}");
    EXPECT_EQ(fake::effects(), Calls{QUERY});
}

TEST_F(TaskLog, FourMembersGoTheOthersStayAndTheResultStandsBehindThem) {
    EXPECT_EQ(query(R"({"code": 0, "mesg": "Fine.", "responseItems": 1, "totalItems": 7, )"
                    R"("logs": [{"id": 7}]})"),
              0);
    EXPECT_EQ(text, R"({ "logs": [ { "id": 7 } ], "ret_code": 0, "mesg": "Success." })");
}

TEST_F(TaskLog, MembersOfTheServiceAreHandedOnAsTheyCame) {
    EXPECT_EQ(
        query(R"({"b": [1.50, null, true], "totalItems": {}, "a": {"mesg": "kept", "code": 1},)"
              R"( "c": "\u00fc\/"})"),
        0);
    EXPECT_EQ(text, R"({ "b": [ 1.50, null, true ], "a": { "mesg": "kept", "code": 1 }, )"
                    "\"c\": \"\xc3\xbc\\/\", \"ret_code\": 0, \"mesg\": \"Success.\" }");
}

TEST_F(TaskLog, EmptyObjectIsAnEmptyLog) {
    EXPECT_EQ(query("{}"), 0);
    EXPECT_EQ(text, R"({ "ret_code": 0, "mesg": "Success." })");
}

TEST_F(TaskLog, ResultCodeOfTheServicesOwnIsReplaced) {
    for (const char* code : {"7", "\"7\"", "7.5", "null", "{}"}) {
        EXPECT_EQ(query(R"({"ret_code": )" + std::string(code) + R"(, "mesg": "x"})"), 0);
        EXPECT_EQ(text, R"({ "ret_code": 0, "mesg": "Success." })") << code;
    }
}

TEST_F(TaskLog, DebugFileShowsTheEventIdentifiersAndTheReplyOnEveryCall) {
    for (int i = 0; i < 2; ++i) {
        query(R"({"logs": ["%s%n"]})");
        EXPECT_EQ(fake::debug_texts(),
                  (Strings{EVENT_IDS, "SSCI_response:{\"logs\": [\"%s%n\"]}\n"}));
    }
}

TEST_F(TaskLog, ReplyOfFiftyMegabytesArrivesWhole) {
    const std::string many(50'000'000, 'x');
    EXPECT_EQ(query(R"({"code":0,"logs":")" + many + R"("})"), 0);
    EXPECT_TRUE(text == R"({ "logs": ")" + many + R"(", "ret_code": 0, "mesg": "Success." })");
}

// --- failures ------------------------------------------------------------------------------------

TEST_F(TaskLog, FailedRequestGivesTheClientsOwnStatus) {
    for (const auto& [status, shown] :
         {std::pair(-1, "-1"), {-2, "-2"}, {-3, "-3"}, {404, "404"}, {500, "500"}}) {
        fake::reset();
        fake::fail("ssci_GET_request", status);
        EXPECT_EQ(query(), status);
        EXPECT_EQ(text, error_reply(shown + std::string(".0"), FAILED));
        EXPECT_EQ(fake::debug_texts(),
                  (Strings{EVENT_IDS, "SSCI fail\n", "error code = " + std::string(shown) + "\n"}));
    }
}

TEST_F(TaskLog, ReplyThatIsNoJsonObjectIsAParseFailure) {
    for (const char* answer : {"", " ", "no json", "{", "{\"logs\": [", "[]", "[{\"logs\": []}]",
                               "5", "null", "true", "\"text\"", "<html>"}) {
        EXPECT_EQ(query(answer), CGI_PARSER_JSON_FAIL) << answer;
        EXPECT_EQ(text, error_reply("2500460549.0", FAILED)) << answer;
        EXPECT_EQ(fake::debug_texts(),
                  (Strings{EVENT_IDS, "SSCI_response:" + std::string(answer) + "\n",
                           "json_tokener_parse fail\n", "error code = 2500460549\n"}));
    }
}

TEST_F(TaskLog, ReplyEndsAtANulByte) {
    EXPECT_EQ(query(std::string("\0{}", 3)), CGI_PARSER_JSON_FAIL);
    EXPECT_EQ(query(std::string("{\"a\": 1}\0rest", 13)), 0);
    EXPECT_EQ(text, R"({ "a": 1, "ret_code": 0, "mesg": "Success." })");
}

TEST_F(TaskLog, EndlessNestingIsAParseFailure) {
    std::string answer;
    for (int depth = 0; depth < 100'000; ++depth) answer += R"({"a":)";
    EXPECT_EQ(query(answer), CGI_PARSER_JSON_FAIL);
}

TEST_F(TaskLog, NoReplyTextAtAllIsAParseFailureOfItsOwn) {
    JsonPtr log;
    EXPECT_EQ(parse_log_reply(nullptr, log), CGI_PARSER_JSON_FAIL);
    EXPECT_EQ(log, nullptr);
    EXPECT_EQ(fake::debug_texts(), Strings{"input format error\n"});
}

TEST_F(TaskLog, AnyOtherExceptionHasCode0AndEndsAsAnEmptyLog) {
    fake::throw_from("ssci_GET_request");
    int result = -1;
    EXPECT_NO_THROW(result = query());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(text, R"({ "ret_code": 0, "mesg": "Success." })");
    EXPECT_EQ(fake::debug_texts(), (Strings{EVENT_IDS, "error code = 0\n"}));
}

}  // namespace
