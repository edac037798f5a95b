// Private mounts, on real ones: who sees them, what is in effect on them, when they are gone.
#include "platform/private_mounts.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "tests/support/temporary_state.h"

namespace {

constexpr uid_t NOBODY = 65534;
constexpr unsigned long RESTRICTED = ST_NOSUID | ST_NODEV | ST_NOEXEC;

/// Runs the steps in a process of their own.
/// @return their result, or 255 when the process was ended
int in_child(const std::function<int()>& steps) {
    const pid_t child = fork();
    if (child == 0) _exit(steps());
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

bool is_mounted(const std::string& folder) {
    struct statx found {};
    return statx(AT_FDCWD, folder.c_str(), 0, 0, &found) == 0 &&
           (found.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

class PrivateMounts : public ::testing::Test {
protected:
    void SetUp() override {
        if (in_child([] { return unshare(CLONE_NEWNS); }) != 0)
            GTEST_SKIP() << "mounting is not allowed here";
    }

    bool mount_here(const std::string& folder) const {
        std::filesystem::create_directories(folder);
        return mount("private", folder.c_str(), "tmpfs", 0, nullptr) == 0;
    }

    TemporaryFolder folder_;
    std::string point_ = folder_.path() + "/point";
};

TEST_F(PrivateMounts, NobodyElseSeesThemAndTheyGoWithTheProcess) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        const bool mounted = enter_private_mounts() == 0 && mount_here(point_) &&
                             is_mounted(point_) && write(ends[1], "", 1) == 1;
        while (mounted) pause();
        _exit(1);
    }
    close(ends[1]);
    char mounted = 'x';
    EXPECT_EQ(read(ends[0], &mounted, 1), 1);
    close(ends[0]);
    EXPECT_TRUE(std::filesystem::exists(point_));
    EXPECT_FALSE(is_mounted(point_));
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_FALSE(is_mounted(point_));
    EXPECT_EQ(rmdir(point_.c_str()), 0);  // no longer busy anywhere
}

TEST_F(PrivateMounts, StayPrivateWhereMountsAreShared) {
    EXPECT_EQ(in_child([&] {
                  // A machine's own mounts are shared as a rule, and these stand for them.
                  if (unshare(CLONE_NEWNS) != 0 ||
                      mount("", "/", nullptr, MS_REC | MS_SHARED, nullptr) != 0)
                      return 1;
                  const int inner = in_child(
                      [&] { return enter_private_mounts() == 0 && mount_here(point_) ? 0 : 1; });
                  return inner == 0 && !is_mounted(point_) ? 0 : 2;
              }),
              0);
}

TEST_F(PrivateMounts, RestrictionTakesSetUserIdDevicesAndProgramsOutOfEffect) {
    EXPECT_EQ(in_child([&] {
                  const std::string below = point_ + "/below";
                  if (enter_private_mounts() != 0 || !mount_here(point_) || !mount_here(below))
                      return 1;
                  if (restrict_mount(point_.c_str()) != 0) return 2;
                  for (const std::string& folder : {point_, below}) {
                      struct statvfs found {};
                      if (statvfs(folder.c_str(), &found) != 0) return 3;
                      if ((found.f_flag & RESTRICTED) != RESTRICTED) return 4;
                  }
                  return 0;
              }),
              0);
}

TEST_F(PrivateMounts, RestrictionIsOfWhatIsOnTop) {
    EXPECT_EQ(in_child([&] {
                  if (enter_private_mounts() != 0 || !mount_here(point_) || !mount_here(point_))
                      return 1;
                  struct statvfs found {};
                  if (restrict_mount(point_.c_str()) != 0) return 2;
                  if (statvfs(point_.c_str(), &found) != 0) return 3;
                  return (found.f_flag & RESTRICTED) == RESTRICTED ? 0 : 4;
              }),
              0);
}

TEST_F(PrivateMounts, WhatCannotBeRestrictedIsReported) {
    EXPECT_EQ(in_child([&] {
                  if (enter_private_mounts() != 0 || !mount_here(point_)) return 1;
                  if (setresuid(NOBODY, NOBODY, NOBODY) != 0) return 2;
                  return restrict_mount(point_.c_str()) == -1 ? 0 : 3;
              }),
              0);
    EXPECT_EQ(restrict_mount((folder_.path() + "/missing").c_str()), -1);
}

TEST_F(PrivateMounts, ProcessThatCannotMountKeepsItsView) {
    EXPECT_EQ(in_child([] {
                  if (setresuid(NOBODY, NOBODY, NOBODY) != 0) return 1;
                  return enter_private_mounts() == 0 ? 0 : 2;
              }),
              0);
}

}  // namespace
