// Requests and sessions of the stand-alone recorder: query strings, cookies, expiry, levels.
#include "platform/cgi_input.h"
#include "platform/standalone/store/session_store.h"
#include "platform/utilities.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

/// What current_time_stamp() gives instead of the time; 0: the time.
unsigned long long set_clock = 0;

class SessionTest : public StateTest {
protected:
    SessionTest() { UserStore(database_).add({"admin", 11}, "secret"); }
    ~SessionTest() override {
        unsetenv("QUERY_STRING");
        unsetenv("HTTP_COOKIE");
        set_clock = 0;
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

    Database database_{registry_database_path(), Database::Access::writing};
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

TEST_F(SessionTest, EndsAfterItsMinutesToTheMillisecond) {
    SessionStore sessions(database_);
    set_clock = 1'700'000'000'000;
    const std::string sid = sessions.open("admin", 5);
    set_clock += 5 * 60'000 - 1;
    ASSERT_TRUE(sessions.find(sid));
    EXPECT_EQ(sessions.find(sid)->name, "admin");
    EXPECT_EQ(sessions.find(sid)->level, 11U);
    ++set_clock;
    EXPECT_FALSE(sessions.find(sid));
}

TEST_F(SessionTest, OpeningOneForgetsTheExpiredOnesAndNoOther) {
    SessionStore sessions(database_);
    set_clock = 1'700'000'000'000;
    for (const int minutes : {1, 1, 2}) sessions.open("admin", minutes);
    set_clock += 60'000;
    sessions.open("admin", 1);
    Statement count = database_.prepare("SELECT count(*) FROM session");
    count.step();
    EXPECT_EQ(count.integer(0), 2);
}

TEST_F(SessionTest, IsOfAnExistingAccountAlone) {
    EXPECT_THROW(open("nobody"), DatabaseError);
}

TEST_F(SessionTest, RefusesALevelBelowTheOneAskedFor) {
    UserStore(database_).add({"below", 10}, "secret");
    UserStore(database_).add({"above", 12}, "secret");
    EXPECT_NE(check("sid=" + open("below")), 0);
    t_ostra_auth_info info{};
    EXPECT_EQ(check("sid=" + open("above"), nullptr, info), 0);
    EXPECT_EQ(info.level, 12U);
    EXPECT_EQ(check("sid=" + open("admin"), nullptr, info), 0);
    EXPECT_EQ(info.level, 11U);
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
    EXPECT_EQ(sid.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_NE(sid, open());
    Statement row = database_.prepare("SELECT sid_hash FROM session");
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.text(0).size(), 64U);
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

extern "C" {
unsigned long long __real__Z18current_time_stampv();

unsigned long long __wrap__Z18current_time_stampv() {
    return set_clock != 0 ? set_clock : __real__Z18current_time_stampv();
}
}
