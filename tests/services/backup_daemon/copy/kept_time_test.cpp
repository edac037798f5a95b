// The time that a copy has on the share, on servers that take it, round it, ignore it or refuse it.
#include "services/backup_daemon/copy/kept_time.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/copy/copier_fixture.h"

using namespace services;

namespace {

constexpr long long SECOND = 1'000'000'000;
constexpr long long TIME = 1'700'000'001 * SECOND;

class KeptTimeTest : public CopierFixture {
protected:
    KeptTimeTest() { server.put("file", "content"); }

    long long keep() { return kept_time.keep("file", TIME); }

    KeptTime kept_time{share};
};

TEST_F(KeptTimeTest, IsLookedAtForTheFirstFileOnly) {
    EXPECT_EQ(keep(), TIME);
    EXPECT_EQ(keep(), TIME);
    EXPECT_EQ(server.calls, (Texts{"set_modified file", "look file", "set_modified file"}));
}

TEST_F(KeptTimeTest, ServerThatRoundsIsBelieved) {
    server.before_call = [this](const std::string& call) {
        if (call == "look file") server.modified_ns["file"] = TIME - SECOND;
    };
    EXPECT_EQ(keep(), TIME - SECOND) << "as it was seen";
    EXPECT_EQ(keep(), TIME);
    EXPECT_EQ(server.calls_of("look").size(), 1U);
}

TEST_F(KeptTimeTest, OfAServerThatIgnoresItTheOwnTimeIsTakenEachTime) {
    server.before_call = [this](const std::string& call) {
        if (call == "look file") server.modified_ns["file"] = 5 * SECOND;
    };
    EXPECT_EQ(keep(), 5 * SECOND);
    EXPECT_EQ(keep(), 5 * SECOND);
    EXPECT_EQ(server.calls, (Texts{"set_modified file", "look file", "look file"}));
}

TEST_F(KeptTimeTest, ServerThatRefusesIsNoFailure) {
    server.modified_ns["file"] = 7;
    server.failure = PlannedFailure{.call = 0, .kind = FailureKind::denied};
    EXPECT_EQ(keep(), 7);
    EXPECT_EQ(keep(), 7);
    EXPECT_EQ(server.calls_of("set_modified").size(), 1U);
}

TEST_F(KeptTimeTest, LostConnectionIsAFailure) {
    server.failure = PlannedFailure{.call = 0};
    EXPECT_EQ(failure_of([this] { keep(); }), FailureKind::lost);
}

TEST_F(KeptTimeTest, CopyHasTheSourcesTimeBeforeItHasItsName) {
    write_source(content);
    std::filesystem::last_write_time(
        source_path,
        std::filesystem::file_time_type::clock::from_sys(
            std::chrono::sys_time<std::chrono::nanoseconds>(std::chrono::nanoseconds(TIME))));
    server.before_call = [this](const std::string& call) {
        if (call.starts_with("rename ")) {
            EXPECT_EQ(server.modified_ns.at(job.temporary), TIME);
        }
    };
    copy();
    EXPECT_EQ(server.modified_ns.at(job.target), TIME);
    EXPECT_EQ(share_modified_ns, TIME);
}

}  // namespace
