// Sessions of the stand-alone recorder: expiry, levels, what is stored of them.
#include "platform/cgi_input.h"
#include "platform/standalone/store/session_store.h"
#include "tests/platform/standalone/set_clock.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

class SessionTest : public StateTest {
protected:
    SessionTest() { UserStore(database_).add({"admin", 11}, "secret"); }
    ~SessionTest() override {
        unsetenv("QUERY_STRING");
        set_clock = 0;
    }

    std::string open(const std::string& user = "admin", long long minutes = 5) {
        return SessionStore(database_).open(user, minutes);
    }

    CheckedUser checked() { return UserStore(database_).check_password("admin", "secret").value(); }

    std::string open_sliding() { return SessionStore(database_).open_sliding(checked()).value(); }

    static int check(const std::string& query) {
        setenv("QUERY_STRING", query.c_str(), 1);
        tagINPUT* input = CGI_Get_Input_URL();
        t_ostra_auth_info info{};
        const int result = cgi_check_user_authentication_v3(input, &info, 11);
        CGI_Free_Input(input);
        return result;
    }

    Database database_{registry_database_path(), Database::Access::writing};
};

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
    ASSERT_TRUE(sessions.look(sid));
    EXPECT_EQ(sessions.look(sid)->user.name, "admin");
    EXPECT_EQ(sessions.look(sid)->user.level, 11U);
    ++set_clock;
    EXPECT_FALSE(sessions.look(sid));
}

TEST_F(SessionTest, EndsAfterItsMinutesForWhoeverHasUsedItBefore) {
    set_clock = 1'700'000'000'000;
    const std::string sid = open("admin", 5);
    EXPECT_EQ(check("sid=" + sid), 0);
    set_clock += 5 * 60'000 - 1;
    EXPECT_EQ(check("sid=" + sid), 0);
    ++set_clock;
    EXPECT_NE(check("sid=" + sid), 0);
}

TEST_F(SessionTest, ASlidingOneEndsHalfAnHourAfterItsLastUse) {
    SessionStore sessions(database_);
    set_clock = 1'700'000'000'000;
    const std::string sid = open_sliding();
    for (int use = 0; use < 3; ++use) {
        set_clock += 30 * 60'000 - 1;
        const auto session = sessions.look(sid);
        ASSERT_TRUE(session);
        EXPECT_EQ(sessions.slide(sid, *session), static_cast<long long>(set_clock) + 30 * 60'000);
    }
    set_clock += 30 * 60'000;
    EXPECT_FALSE(sessions.look(sid));
}

TEST_F(SessionTest, IsNotOpenedWithAPasswordThatIsNoLongerTheAccounts) {
    const CheckedUser old = checked();
    UserStore(database_).set_password("admin", "secret");
    EXPECT_FALSE(SessionStore(database_).open_sliding(old));
    EXPECT_TRUE(SessionStore(database_).open_sliding(checked()));
    UserStore(database_).remove("admin");
    EXPECT_FALSE(SessionStore(database_).open_sliding(old));
    EXPECT_TRUE(SessionStore(database_).list().empty());
}

TEST_F(SessionTest, ASlidingOneEndsAfterTwelveHoursHoweverMuchItIsUsed) {
    SessionStore sessions(database_);
    set_clock = 1'700'000'000'000;
    const auto end = static_cast<long long>(set_clock) + 12 * 3'600'000;
    const std::string sid = open_sliding();
    for (; static_cast<long long>(set_clock) < end; set_clock += 20 * 60'000) {
        const auto session = sessions.look(sid);
        ASSERT_TRUE(session);
        EXPECT_EQ(session->ends_ms, end);
        EXPECT_LE(sessions.slide(sid, *session), end);
    }
    EXPECT_FALSE(sessions.look(sid));
}

TEST_F(SessionTest, UseIsWrittenDownOnceAMinuteAtMost) {
    SessionStore sessions(database_);
    set_clock = 1'700'000'000'000;
    const std::string sid = open_sliding();
    const auto opened = sessions.look(sid);
    set_clock += 59'999;
    EXPECT_EQ(sessions.slide(sid, *opened), opened->expires_ms);
    set_clock += 1;
    EXPECT_EQ(sessions.slide(sid, *opened), opened->expires_ms + 60'000);
    EXPECT_EQ(sessions.look(sid)->expires_ms, opened->expires_ms + 60'000);
}

TEST_F(SessionTest, OneWithAFixedEndKeepsIt) {
    SessionStore sessions(database_);
    set_clock = 1'700'000'000'000;
    const std::string sid = sessions.open("admin", 5);
    const auto session = sessions.look(sid);
    EXPECT_EQ(session->ends_ms, session->expires_ms);
    set_clock += 4 * 60'000;
    EXPECT_EQ(sessions.slide(sid, *session), session->expires_ms);
    EXPECT_EQ(sessions.look(sid)->expires_ms, session->expires_ms);
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

TEST_F(SessionTest, StoresNeitherSidNorPasswordInTheOpen) {
    const std::string sid = open();
    EXPECT_EQ(check("sid=" + sid), 0);
    EXPECT_TRUE(std::filesystem::exists(registry_answers_path()));
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

}  // namespace
