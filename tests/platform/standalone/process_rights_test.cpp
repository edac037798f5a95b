// The identity of the recorder's user: what is taken on, the way back, and that it can be given up.
#include "platform/process_rights.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "tests/support/temporary_state.h"

namespace {

constexpr uid_t OWNER = 4711;
constexpr gid_t OWNERS_GROUP = 4712;
constexpr uid_t STARTER = 33;
constexpr gid_t STARTERS_GROUP = 34;

using Ids = std::vector<unsigned>;

Ids users() {
    uid_t real = 0;
    uid_t effective = 0;
    uid_t saved = 0;
    getresuid(&real, &effective, &saved);
    return {real, effective, saved};
}

Ids groups() {
    gid_t real = 0;
    gid_t effective = 0;
    gid_t saved = 0;
    getresgid(&real, &effective, &saved);
    Ids found = {real, effective, saved};
    std::vector<gid_t> more(64);
    more.resize(static_cast<std::size_t>(std::max(0, getgroups(64, more.data()))));
    found.insert(found.end(), more.begin(), more.end());
    return found;
}

class ProcessRights : public StateTest {
protected:
    void SetUp() override {
        if (getuid() != 0) GTEST_SKIP() << "needs root";
        own_state_by(OWNER, OWNERS_GROUP);
    }

    void own_state_by(uid_t user, gid_t group) const {
        ASSERT_EQ(chown(state_.folder().c_str(), user, group), 0);
    }

    /// Does `work` in a process of its own, which begins as a set-user-ID root program does that
    /// the web server starts; `work` says whether all was as it should be.
    static void in_a_program(const std::function<bool()>& work) {
        const pid_t child = fork();
        if (child == 0) {
            const bool begun = setgroups(0, nullptr) == 0 &&
                               setresgid(STARTERS_GROUP, STARTERS_GROUP, STARTERS_GROUP) == 0 &&
                               setresuid(STARTER, 0, 0) == 0;
            _exit(begun && work() ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
};

TEST_F(ProcessRights, AreThoseOfTheStateFoldersOwnerWithAWayBack) {
    in_a_program([] {
        take_recorder_identity();
        return users() == Ids{0, OWNER, 0} &&
               groups() == Ids{STARTERS_GROUP, OWNERS_GROUP, OWNERS_GROUP, STARTERS_GROUP} &&
               setreuid(0, 0) == 0 && users() == Ids{0, 0, 0};
    });
}

TEST_F(ProcessRights, OnceGivenUpDoNotComeBack) {
    in_a_program([] {
        take_recorder_identity();
        give_up_root();
        return users() == Ids{OWNER, OWNER, OWNER} && setreuid(0, 0) != 0 && seteuid(0) != 0 &&
               setuid(0) != 0 && users() == Ids{OWNER, OWNER, OWNER};
    });
}

TEST_F(ProcessRights, StayRootsWhereTheRecorderBelongsToRoot) {
    own_state_by(0, 0);
    in_a_program([] {
        take_recorder_identity();
        give_up_root();
        return users() == Ids{0, 0, 0};
    });
}

TEST_F(ProcessRights, AreTheStartersWhereThereIsNoRecorder) {
    setenv("RECORDER_STATE", "/no/such/folder", 1);
    in_a_program([] {
        take_recorder_identity();
        return users() == Ids{STARTER, STARTER, STARTER} && setreuid(0, 0) != 0;
    });
}

TEST_F(ProcessRights, OfAnUnprivilegedProcessStayAsTheyAre) {
    in_a_program([] {
        if (setresuid(STARTER, STARTER, STARTER) != 0) return false;
        take_recorder_identity();
        give_up_root();
        return users() == Ids{STARTER, STARTER, STARTER};
    });
}

}  // namespace
