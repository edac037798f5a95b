// Tests of the route functions: what is called, what is printed, what is answered like no route.
#include "cgi/routes.h"

#include "backup/recording_backup_function.h"
#include "cgi/result_code.h"
#include "platform/json_ptr.h"
#include "tests/backup/daemon_messages.h"
#include "tests/support/fake_platform/platform_test.h"
#include "tests/support/sample_task.h"

namespace {

constexpr char HEADERS[] = "Status: 200 OK\r\nContent-type: application/json\r\n\r\n";

class Routes : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        __ip = "198.51.100.9";
        __user = "admin";
    }

    void TearDown() override { take({}); }

    static void take(Strings segments) { ASSERT_EQ(vector_token_to_char(&segments), 0); }

    int get(const Strings& segments) {
        take(segments);
        json_object* own_reply = nullptr;
        testing::internal::CaptureStdout();
        const int result = get_method_fun(&tokens, &own_reply, nullptr);
        output = testing::internal::GetCapturedStdout();
        json_object_put(own_reply);
        return result;
    }

    int put(const Strings& segments, std::string body = "{}") {
        take(segments);
        return silently([&] { return put_method_fun(&tokens, &reply, body.data(), nullptr); });
    }

    int post(const Strings& segments, std::string body = "{}") {
        take(segments);
        return silently([&] { return post_method_fun(&tokens, &reply, body.data(), 2, nullptr); });
    }

    int del(const Strings& segments, tagINPUT* input = nullptr) {
        take(segments);
        return silently([&] { return delete_method_fun(&tokens, &reply, nullptr, input); });
    }

    /// Runs a route function whose headers and reply are its caller's to print.
    template <class Route>
    int silently(Route route) {
        reply = nullptr;
        testing::internal::CaptureStdout();
        const int result = route();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        return result;
    }

    void expect_no_route(int result) {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(reply, nullptr);
        EXPECT_EQ(fake::effects(), std::vector<fake::Call>{});
    }

    Strings tokens;  // not read by the route functions
    json_object* reply = nullptr;
    std::string output;
};

// --- segments -----------------------------------------------------------------------------------

TEST_F(Routes, FifteenSegmentsAreAcceptedAndTheLastEntryStaysNull) {
    Strings segments;
    for (int i = 0; i < 15; ++i) segments.push_back("s" + std::to_string(i));
    EXPECT_EQ(vector_token_to_char(&segments), 0);
    for (std::size_t i = 0; i < 15; ++i) EXPECT_EQ(uri_token[i], segments[i]);
    EXPECT_EQ(uri_token[15], nullptr);
    EXPECT_EQ(segments.size(), 15U);
}

TEST_F(Routes, SixteenSegmentsAreRefused) {
    for (const std::size_t count : {16, 17, 1000}) {
        Strings segments(count, "s");
        EXPECT_EQ(vector_token_to_char(&segments), -1);
    }
}

TEST_F(Routes, NoSegmentsAreAcceptedAndLeaveEveryEntryNull) {
    take({"a", "b"});
    take({});
    for (const char* segment : uri_token) EXPECT_EQ(segment, nullptr);
}

TEST_F(Routes, SegmentsAreCopies) {
    Strings segments = {"task"};
    EXPECT_EQ(vector_token_to_char(&segments), 0);
    segments[0][0] = 'T';
    EXPECT_STREQ(uri_token[0], "task");
}

// --- headers ------------------------------------------------------------------------------------

TEST_F(Routes, HeaderIsTheStatusLineAndTheContentType) {
    testing::internal::CaptureStdout();
    http_header_output("Status: 401 Unauthorized\r\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Status: 401 Unauthorized\r\nContent-type: application/json\r\n\r\n");
}

// --- GET ----------------------------------------------------------------------------------------

TEST_F(Routes, GetFusePrintsHeadersAndReplyWhateverFollows) {
    for (const Strings& segments : {Strings{"fuse"}, Strings{"fuse", "x", "y"}}) {
        EXPECT_EQ(get(segments), 0);
        EXPECT_EQ(output, std::string(HEADERS) +
                              R"({ "ret_code": 0, "mesg": "Success.", "isFUSE": true })" + "\n\n");
    }
}

TEST_F(Routes, GetTaskListsTheTasks) {
    EXPECT_EQ(get({"task"}), 0);
    EXPECT_EQ(output, std::string(HEADERS) +
                          R"({ "ret_code": 0, "mesg": "Success.", )"
                          R"("task_list": [ ], "max_parallel_task_num": 2 })" +
                          "\n\n");
}

TEST_F(Routes, HeadersAreTheSameWhenTheOperationFails) {
    fake::fail("ssci_GET_request", -1);
    EXPECT_EQ(get({"task"}), CGI_SSCI_FAIL);
    EXPECT_EQ(output, HEADERS + error_reply("2500460579.0", "Get task list fail.") + "\n\n");
}

TEST_F(Routes, GetTaskStatusTakesSegmentTwoAndIgnoresTheRest) {
    TDataBackupConfig task;
    task.taskID = "7";
    task.status = 4;
    fake::platform.tasks = {task};
    const auto shown = [](const char* word) {
        return std::string(HEADERS) + R"({ "ret_code": 0, "mesg": "Success.", "status": ")" + word +
               "\" }\n\n";
    };
    EXPECT_EQ(get({"task", "status", "7"}), 0);
    EXPECT_EQ(output, shown("running"));
    EXPECT_EQ(get({"task", "status", "7", "x"}), 0);
    EXPECT_EQ(output, shown("running"));
    EXPECT_EQ(get({"task", "status"}), 0);
    EXPECT_EQ(output, shown(""));
}

TEST_F(Routes, UnknownGetPrintsNullWithoutAnyHeader) {
    for (const Strings& segments :
         {Strings{"task", "unknown"}, Strings{"unknown"}, Strings{}, Strings{"Task"},
          Strings{"task", "Status"}, Strings{"task", "log", "other"}, Strings{"fuse "}}) {
        expect_no_route(get(segments));
        EXPECT_EQ(output, "null\n\n");
    }
}

// --- rights -------------------------------------------------------------------------------------

TEST_F(Routes, OnlyThoseThatRunToolsKeepTheWayBackToRoot) {
    const auto keeps = [](const char* method, const Strings& segments) {
        fake::reset();
        take(segments);
        keep_rights_of_route(method);
        return fake::calls_of("give_up_root").empty();
    };
    EXPECT_TRUE(keeps("GET", {"share"}));
    EXPECT_TRUE(keeps("GET", {"share", "x"}));
    EXPECT_TRUE(keeps("GET", {"task", "log", "file"}));
    EXPECT_TRUE(keeps("PUT", {"server", "testing"}));
    for (const char* method : {"GET", "PUT", "POST", "DELETE", "PATCH", "get", ""})
        for (const Strings& segments :
             {Strings{}, Strings{"channel"}, Strings{"fuse"}, Strings{"task"},
              Strings{"task", "status", "7"}, Strings{"task", "log"}, Strings{"task", "7"},
              Strings{"task", "7", "active"}, Strings{"task", "7", "is_enable"}, Strings{"unknown"},
              Strings{"Share"}, Strings{"server"}})
            EXPECT_FALSE(keeps(method, segments)) << method;
    for (const char* method : {"POST", "DELETE", "PATCH", "put"})
        for (const Strings& segments :
             {Strings{"share"}, Strings{"task", "log", "file"}, Strings{"server", "testing"}})
            EXPECT_FALSE(keeps(method, segments)) << method;
}

// --- PUT ----------------------------------------------------------------------------------------

TEST_F(Routes, PutTaskCreates) {
    EXPECT_EQ(put({"task"}, task_body()), 0);
    EXPECT_EQ(printed(reply), R"({ "ret_code": 0, "mesg": "Success." })");
    ASSERT_EQ(fake::platform.stored.size(), 1U);
    EXPECT_EQ(fake::platform.stored[0].find("taskID"), std::string::npos);
}

TEST_F(Routes, PutTaskWithoutABodyIsTheOperationsFailure) {
    take({"task"});
    EXPECT_EQ(put_method_fun(&tokens, &reply, nullptr, nullptr), CGI_INPUT_FORMAT_ERROR);
    EXPECT_EQ(printed(reply), error_reply("2500460548.0", "Insert task to database fail."));
}

TEST_F(Routes, PutTaskWithASecondSegmentIsNoCreate) {
    expect_no_route(put({"task", "x"}, task_body()));
}

TEST_F(Routes, UnknownPutAnswersNothing) {
    for (const Strings& segments :
         {Strings{}, Strings{"server"}, Strings{"server", "other"}, Strings{"fuse"},
          Strings{"tasks"}, Strings{"testing", "server"}})
        expect_no_route(put(segments, task_body()));
}

TEST_F(Routes, PutWritesItsSegmentsToTheDebugFile) {
    put({"a", "b", "c", "d"});
    EXPECT_EQ(fake::debug_texts(), Strings{"put_method_fun:[0]:a, [1]:b, [2]:c\n"});
    fake::reset();
    put({"a%s"});
    EXPECT_EQ(fake::debug_texts(), Strings{"put_method_fun:[0]:a%s, [1]:(null), [2]:(null)\n"});
}

// --- POST ---------------------------------------------------------------------------------------

TEST_F(Routes, PostTaskModifiesTheTaskOfSegmentOne) {
    EXPECT_EQ(post({"task", "7"}, task_body()), 0);
    EXPECT_EQ(printed(reply), R"({ "ret_code": 0, "mesg": "Success." })");
    ASSERT_EQ(fake::platform.stored.size(), 1U);
    EXPECT_NE(fake::platform.stored[0].find(R"("taskID": "7", "enable": true })"),
              std::string::npos);
}

TEST_F(Routes, PostTaskWithoutIdentifierModifiesWithAnAbsentOne) {
    EXPECT_EQ(post({"task"}, task_body()), 0);
    json_object_put(reply);
    ASSERT_EQ(fake::platform.stored.size(), 1U);
    EXPECT_NE(fake::platform.stored[0].find(R"("taskID": "", "enable": true })"),
              std::string::npos);
}

TEST_F(Routes, PostActiveWithAnotherSegmentThreeAnswersNothing) {
    expect_no_route(post({"task", "7", "active", "other"}, task_body()));
}

TEST_F(Routes, UnknownPostAnswersNothing) {
    for (const Strings& segments : {Strings{}, Strings{"fuse"}, Strings{"task", "7", "other"},
                                    Strings{"task", "7", "Active"}, Strings{"server", "testing"}})
        expect_no_route(post(segments, task_body()));
}

// --- DELETE -------------------------------------------------------------------------------------

TEST_F(Routes, UnknownDeleteAnswersNothing) {
    for (const Strings& segments : {Strings{}, Strings{"fuse"}, Strings{"tasks", "7"}})
        expect_no_route(del(segments));
}

TEST_F(Routes, DeleteWithoutIsStopAnswersNothing) {
    EXPECT_EQ(del({"task", "7"}), 0);
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(fake::calls_of("ssci_DELETE_request"), std::vector<fake::Call>{});
}

void expect_printed_as_json_c_does(const std::string& text) {
    const JsonPtr printed(json_tokener_parse(text.c_str()));
    const JsonPtr told(json_tokener_parse(text.c_str()));
    testing::internal::CaptureStdout();
    print_reply(printed.get());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              json_object_to_json_string(told.get()) + std::string("\n\n"));
}

TEST(PrintedReply, IsTheTextThatJsonCHasForIt) {
    constexpr const char* TEXTS[] = {
        "null", "{}", R"({"a":[]})", R"({"a":null,"b":[null]})",
        R"({"code":0.0,"list":[{"a/b":"x/y\"\n"},[1,[]],{}],"more":{"list":[1]},"last":true})"};
    for (const char* text : TEXTS) expect_printed_as_json_c_does(text);
}

TEST(PrintedReply, IsTheSameTextForALongList) {
    for (const int entries : {127, 128, 129, 255, 256, 257, 1000}) {
        std::string list = "[null";
        for (int entry = 1; entry < entries; ++entry) list += R"(,{"a/b":[],"c":"]"})";
        expect_printed_as_json_c_does(R"({"code":0.0,"list":)" + list + R"(],"last":[1]})");
    }
}

}  // namespace
