// Files whose pages stay in memory.
#include "platform/standalone/store/locked_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "tests/support/temporary_state.h"

namespace {

using standalone::LockedFile;

constexpr int KIB = 1024;
#ifdef __SANITIZE_ADDRESS__
constexpr bool IS_LOCKING = false;  // the sanitizer has mlock(2) do nothing
#else
constexpr bool IS_LOCKING = true;
#endif
constexpr uid_t NOBODY = 65534;

/// What this process has locked, in KiB.
int locked() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmLck:" && status >> word) return std::stoi(word);
    return -1;
}

class LockedFileTest : public testing::Test {
protected:
    void make(int kib) const { std::ofstream(path_) << std::string(kib * KIB, 'x'); }

    TemporaryFolder folder_;
    std::string path_ = folder_.path() + "/file";
};

TEST_F(LockedFileTest, StaysInMemoryUntilItIsLetGo) {
    make(40);
    std::optional<LockedFile> file(path_);
    EXPECT_EQ(locked(), IS_LOCKING ? 40 : 0);
    file.reset();
    EXPECT_EQ(locked(), 0);
}

TEST_F(LockedFileTest, MayBecomeShorterOrGo) {
    make(40);
    const LockedFile file(path_);
    std::filesystem::resize_file(path_, 0);
    make(8);
    EXPECT_EQ(read_file(path_), std::string(8 * KIB, 'x'));
    std::filesystem::remove(path_);
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(LockedFileTest, MissingOrEmptyFileIsNoFailure) {
    const LockedFile missing(path_);
    make(0);
    const LockedFile empty(path_);
    const LockedFile folder(folder_.path());
    EXPECT_EQ(locked(), 0);
}

/// In a process of its own, which loses its rights.
TEST_F(LockedFileTest, WhoMayLockNothingGoesOnWithout) {
    make(40);
    const auto lock_without_rights = [&] {
        const rlimit nothing{.rlim_cur = 0, .rlim_max = 0};
        if (setrlimit(RLIMIT_MEMLOCK, &nothing) != 0) std::exit(2);
        std::filesystem::permissions(folder_.path(), std::filesystem::perms::all);
        if (geteuid() == 0 && setresuid(NOBODY, NOBODY, NOBODY) != 0) std::exit(3);
        if (access(path_.c_str(), R_OK) != 0) std::exit(5);
        const LockedFile file(path_);
        std::exit(locked() == 0 ? 0 : 4);
    };
    EXPECT_EXIT(lock_without_rights(), testing::ExitedWithCode(0), "");
}

}  // namespace
