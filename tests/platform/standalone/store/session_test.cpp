// Requests and sessions of the stand-alone recorder: query strings, cookies, expiry, levels.
#include "platform/cgi_input.h"
#include "platform/standalone/store/session_store.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

class SessionTest : public StateTest {
protected:
    SessionTest() { UserStore(database_).add({"admin", 11}, "secret"); }
    ~SessionTest() override {
        unsetenv("QUERY_STRING");
        unsetenv("HTTP_COOKIE");
    }

    std::string open(const std::string& user = "admin", long long minutes = 5) {
        return SessionStore(database_).open(user, minutes);
    }

    static int check(const std::string& query, const char* cookie, t_ostra_auth_info& info) {
        setenv("QUERY_STRING", query.c_str(), 1);
        cookie != nullptr ? setenv("HTTP_COOKIE", cookie, 1) : unsetenv("HTTP_COOKIE");
        tagINPUT* input = CGI_Get_Input_URL();
        const int result = cgi_check_user_authentication_v3(input, &info, 11);
        CGI_Free_Input(input);
        return result;
    }

    static int check(const std::string& query, const char* cookie = nullptr) {
        t_ostra_auth_info info{};
        return check(query, cookie, info);
    }

    static std::string parameter(const std::string& query, const char* name) {
        setenv("QUERY_STRING", query.c_str(), 1);
        tagINPUT* input = CGI_Get_Input_URL();
        const tagPARAMETER* found = _CGI_Find_Parameter(input, name);
        const std::string value = found == nullptr ? "(none)" : found->value;
        CGI_Free_Input(input);
        return value;
    }

    Database database_{registry_database_path(), Database::Mode::read_write};
};

TEST_F(SessionTest, AcceptsTheSidOfTheQueryOrOfTheCookie) {
    const std::string sid = open();
    EXPECT_EQ(check("sid=" + sid), 0);
    EXPECT_EQ(check("a=b&sid=" + sid), 0);
    EXPECT_EQ(check("", ("sid=" + sid).c_str()), 0);
    EXPECT_EQ(check("x=1", ("theme=dark; sid=" + sid + "; lang=de").c_str()), 0);
    EXPECT_EQ(check("", ("sid=\"" + sid + "\"").c_str()), 0);
}

TEST_F(SessionTest, RefusesAnythingElse) {
    const std::string sid = open();
    EXPECT_NE(check(""), 0);
    EXPECT_NE(check("sid="), 0);
    EXPECT_NE(check("SID=" + sid), 0);
    EXPECT_NE(check("sid=" + sid + "0"), 0);
    EXPECT_NE(check("sid=" + std::string(32, '0')), 0);
    EXPECT_NE(check("", ("xsid=" + sid).c_str()), 0);
    EXPECT_NE(check("sid=wrong", ("sid=" + sid).c_str()), 0);
}

TEST_F(SessionTest, RefusesExpiredAndClosedSessions) {
    EXPECT_NE(check("sid=" + open("admin", 0)), 0);
    const std::string sid = open();
    EXPECT_TRUE(SessionStore(database_).close(sid));
    EXPECT_FALSE(SessionStore(database_).close(sid));
    EXPECT_NE(check("sid=" + sid), 0);
}

TEST_F(SessionTest, ClosesTheSessionsOfARemovedUser) {
    const std::string sid = open();
    EXPECT_TRUE(UserStore(database_).remove("admin"));
    EXPECT_NE(check("sid=" + sid), 0);
}

TEST_F(SessionTest, RefusesWhenTheStoreIsNotThere) {
    const std::string sid = open();
    setenv("RECORDER_STATE", "/nonexistent", 1);
    EXPECT_NE(check("sid=" + sid), 0);
}

TEST_F(SessionTest, HandsALongNameOutInTheSecondArea) {
    const std::string name(300, 'n');
    UserStore(database_).add({name, 11}, "secret");
    t_ostra_auth_info info{};
    ASSERT_EQ(check("sid=" + open(name), nullptr, info), 0);
    EXPECT_EQ(info.user_name, name);
    EXPECT_EQ(std::string(info.user), name.substr(0, 255));
}

TEST_F(SessionTest, StoresNeitherSidNorPasswordInTheOpen) {
    const std::string sid = open();
    for (const auto& file : std::filesystem::directory_iterator(state_.folder())) {
        const std::string bytes = read_file(file.path());
        EXPECT_EQ(bytes.find(sid), std::string::npos) << file.path();
        EXPECT_EQ(bytes.find("secret"), std::string::npos) << file.path();
    }
    EXPECT_EQ(sid.size(), 32U);
    EXPECT_NE(sid, open());
}

TEST_F(SessionTest, KeepsOneAccountOfAName) {
    EXPECT_FALSE(UserStore(database_).add({"admin", 1}, "other"));
    EXPECT_EQ(UserStore(database_).list().size(), 1U);
    EXPECT_EQ(UserStore(database_).list().front().level, 11U);
    EXPECT_TRUE(UserStore::valid_name("Jörg"));
    EXPECT_FALSE(UserStore::valid_name(""));
    EXPECT_FALSE(UserStore::valid_name("a\nb"));
    EXPECT_FALSE(UserStore::valid_name(std::string(1024, 'x')));
}

TEST_F(SessionTest, DecodesQueryParameters) {
    EXPECT_EQ(parameter("pwd=a%2Bb%3D+c", "pwd"), "a+b= c");
    EXPECT_EQ(parameter("pwd=100%&x=%4", "pwd"), "100%");
    EXPECT_EQ(parameter("pwd=100%&x=%4", "x"), "%4");
    EXPECT_EQ(parameter("x=%zz", "x"), "%zz");
    EXPECT_EQ(parameter("x=%4a", "x"), "J");
    EXPECT_EQ(parameter("&&x=1&x=2&", "x"), "1");
    EXPECT_EQ(parameter("flag", "flag"), "");
    EXPECT_EQ(parameter("a=b=c", "a"), "b=c");
    EXPECT_EQ(parameter("%61=1", "a"), "1");
    EXPECT_EQ(parameter("", "a"), "(none)");
}

TEST_F(SessionTest, RefusesQueriesBeyondItsLimits) {
    const auto parses = [](const std::string& query) {
        setenv("QUERY_STRING", query.c_str(), 1);
        tagINPUT* input = CGI_Get_Input_URL();
        CGI_Free_Input(input);
        return input != nullptr;
    };
    std::string many;
    for (int at = 0; at < 256; ++at) many += "a=1&";
    EXPECT_TRUE(parses(many));
    EXPECT_FALSE(parses(many + "a=1"));
    EXPECT_TRUE(parses("x=" + std::string(64 * 1024 - 2, 'x')));
    EXPECT_FALSE(parses("x=" + std::string(64 * 1024 - 1, 'x')));
    unsetenv("QUERY_STRING");
    tagINPUT* input = CGI_Get_Input_URL();
    EXPECT_NE(input, nullptr);
    CGI_Free_Input(input);
}

}  // namespace
