// The request of the stand-alone recorder: which session it names, and what its parameters say.
#include "platform/cgi_input.h"

#include "platform/standalone/store/session_store.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

class CgiInput : public StateTest {
protected:
    CgiInput() { UserStore(registry_).add({"admin", 11}, "secret"); }
    ~CgiInput() override {
        unsetenv("QUERY_STRING");
        unsetenv("HTTP_COOKIE");
    }

    std::string open(const std::string& user) { return SessionStore(registry_).open(user, 5); }

    static int check(const std::string& query, const std::string& cookie, t_ostra_auth_info& info,
                     unsigned level = 11) {
        setenv("QUERY_STRING", query.c_str(), 1);
        setenv("HTTP_COOKIE", cookie.c_str(), 1);
        tagINPUT* input = CGI_Get_Input_URL();
        const int result = cgi_check_user_authentication_v3(input, &info, level);
        CGI_Free_Input(input);
        return result;
    }

    static bool accepts(const std::string& query, const std::string& cookie) {
        t_ostra_auth_info info{};
        return check(query, cookie, info) == 0;
    }

    static std::string value_of(const std::string& query, const char* name) {
        setenv("QUERY_STRING", query.c_str(), 1);
        tagINPUT* input = CGI_Get_Input_URL();
        const tagPARAMETER* found = _CGI_Find_Parameter(input, name);
        const std::string value = found == nullptr ? "(none)" : found->value;
        CGI_Free_Input(input);
        return value;
    }

    Database registry_{registry_database_path(), Database::Access::writing};
};

TEST_F(CgiInput, FindsTheSessionAmongCookies) {
    const std::string sid = open("admin");
    for (const std::string& cookie :
         {"sid=" + sid, "theme=dark; sid=" + sid + "; lang=de", "a=b;sid=" + sid,
          "a=b; \t sid=" + sid, "sid=" + sid + ";", "a; sid=" + sid, "sid=\"" + sid + "\"",
          "sid=" + sid + "; sid=other"})
        EXPECT_TRUE(accepts("", cookie)) << cookie;
}

TEST_F(CgiInput, TakesNoOtherCookieForTheSession) {
    const std::string sid = open("admin");
    for (const std::string& cookie :
         {"xsid=" + sid, "sidx=" + sid, "SID=" + sid, "a=sid=" + sid, "sid=\"" + sid,
          "sid=\"" + sid + "x", "sid=" + sid + "x", "sid =" + sid, "sid=other; sid=" + sid,
          std::string("sid"), std::string("sid=\"")})
        EXPECT_FALSE(accepts("", cookie)) << cookie;
}

TEST_F(CgiInput, FindsTheSessionAmongParameters) {
    const std::string sid = open("admin");
    EXPECT_TRUE(accepts("sid=" + sid, ""));
    EXPECT_TRUE(accepts("a=b&sid=" + sid + "&sid=other", ""));
    for (const std::string& query :
         {std::string(), std::string("sid="), "SID=" + sid, "sid=" + sid + "0",
          "sid=" + std::string(32, '0'), "sid=" + sid + "%00", "sid%00=" + sid})
        EXPECT_FALSE(accepts(query, "")) << query;
}

TEST_F(CgiInput, PrefersTheQuerysSessionEvenWhenItIsEmpty) {
    const std::string sid = open("admin");
    EXPECT_TRUE(accepts("sid=" + sid, "sid=other"));
    EXPECT_FALSE(accepts("sid=other", "sid=" + sid));
    EXPECT_FALSE(accepts("sid=", "sid=" + sid));
    EXPECT_TRUE(accepts("SID=other", "sid=" + sid));
}

TEST_F(CgiInput, ComparesLevels) {
    UserStore(registry_).add({"guest", 3}, "secret");
    const std::string query = "sid=" + open("guest");
    t_ostra_auth_info info{};
    EXPECT_EQ(check(query, "", info, 2), 0);
    EXPECT_EQ(info.level, 3U);
    EXPECT_EQ(check(query, "", info, 3), 0);
    EXPECT_NE(check(query, "", info, 4), 0);
}

TEST_F(CgiInput, FillsTheSecondNameAreaOnlyForNamesThatDoNotFitTheFirst) {
    for (const std::size_t length : {1U, 255U, 256U, 1023U}) {
        const std::string name(length, 'n');
        UserStore(registry_).add({name, 11}, "secret");
        t_ostra_auth_info info{};
        ASSERT_EQ(check("sid=" + open(name), "", info), 0) << length;
        EXPECT_EQ(std::string(info.user), name.substr(0, 255)) << length;
        EXPECT_EQ(std::string(info.user_name), length < 256 ? "" : name) << length;
    }
}

TEST_F(CgiInput, DecodesWhatIsEncodedAndNothingElse) {
    const std::pair<const char*, const char*> rows[] = {
        {"x=%4A%4a", "JJ"}, {"x=%2b+", "+ "},  {"x=%", "%"},       {"x=%4", "%4"},
        {"x=%4g", "%4g"},   {"x=%g4", "%g4"},  {"x=%25%34", "%4"}, {"x=%254A", "%4A"},
        {"x=%Ff", "\xff"},  {"x=%c3%A4", "ä"}, {"x=a%00b", "a"},   {"x=1;y=2", "1;y=2"}};
    for (const auto& [query, value] : rows) EXPECT_EQ(value_of(query, "x"), value) << query;
}

TEST_F(CgiInput, TakesParametersApart) {
    EXPECT_EQ(value_of("pwd=a%2Bb%3D+c", "pwd"), "a+b= c");
    EXPECT_EQ(value_of("pwd=100%&x=%4", "pwd"), "100%");
    EXPECT_EQ(value_of("&&x=1&x=2&", "x"), "1");
    EXPECT_EQ(value_of("flag", "flag"), "");
    EXPECT_EQ(value_of("a=b=c", "a"), "b=c");
    EXPECT_EQ(value_of("%61=1", "a"), "1");
    EXPECT_EQ(value_of("", "a"), "(none)");
}

TEST_F(CgiInput, DecodesNames) {
    EXPECT_EQ(value_of("a+b%3D=1", "a b="), "1");
    EXPECT_EQ(value_of("=1", ""), "1");
    EXPECT_EQ(value_of("a&a=2", "a"), "");
    EXPECT_EQ(value_of("a%00b=1&a=2", "a"), "2");
    EXPECT_EQ(value_of("a%00=1", "a"), "(none)");
}

TEST_F(CgiInput, RefusesQueriesBeyondItsLimits) {
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

TEST_F(CgiInput, AppendsNothingForAPathThatIsNotThere) {
    std::vector<std::string> segments{"before"};
    EXPECT_EQ(cgi_uri_token_paser(nullptr, &segments), 0);
    EXPECT_EQ(segments.size(), 1U);
}

}  // namespace
