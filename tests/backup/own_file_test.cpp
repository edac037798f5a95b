// Tests of files of our own where others can plant theirs, and of the lock. Runs in a sandbox,
// where /tmp is private.
#include "backup/own_file.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <thread>
#include <vector>

#include "backup/file_lock.h"
#include "tests/support/whole_file.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t NOBODY = 65534;
constexpr char FOLDER[] = "/tmp/own_file_test";
constexpr char PATH[] = "/tmp/own_file_test/file";
constexpr char VICTIM[] = "/tmp/own_file_test/victim";

/// Something of others' in the file's place, by name.
void plant(const std::string& what) {
    write_file(VICTIM, "precious");
    fs::permissions(VICTIM, fs::perms(0600));
    if (what == "link") fs::create_symlink(VICTIM, PATH);
    if (what == "dangling link") fs::create_symlink("/tmp/own_file_test/nowhere", PATH);
    if (what == "second name") fs::create_hard_link(VICTIM, PATH);
    if (what == "FIFO") {
        ASSERT_EQ(mkfifo(PATH, 0600), 0);
    }
    if (what == "open to all") {
        write_file(PATH, "");
        fs::permissions(PATH, fs::perms(0644));
    }
    if (what == "another user's") {
        write_file(PATH, "");
        fs::permissions(PATH, fs::perms(0600));
        ASSERT_EQ(chown(PATH, NOBODY, NOBODY), 0);
    }
}

class OwnFile : public ::testing::Test {
protected:
    void SetUp() override {
        fs::remove_all(FOLDER);
        fs::create_directory(FOLDER);
    }
    void TearDown() override { fs::remove_all(FOLDER); }
};

TEST_F(OwnFile, IsMadeAnewInThePlaceOfWhateverLiesThere) {
    for (const char* what : {"nothing", "link", "dangling link", "second name", "FIFO",
                             "open to all", "another user's"}) {
        SetUp();
        plant(what);
        const Descriptor file = create_own_file(PATH);
        ASSERT_TRUE(file) << what;
        struct stat found {};
        ASSERT_EQ(lstat(PATH, &found), 0);
        EXPECT_EQ(found.st_mode, S_IFREG | 0600U) << what;
        EXPECT_EQ(found.st_uid, geteuid()) << what;
        EXPECT_TRUE(is_name_of(PATH, file)) << what;
        EXPECT_EQ(read_file(VICTIM), "precious") << what;
        EXPECT_FALSE(fs::exists("/tmp/own_file_test/nowhere"));
    }
}

TEST_F(OwnFile, IsMadeByEachOfThoseWhoMakeItAtOnce) {
    std::atomic<int> failures = 0;
    std::vector<std::thread> makers;
    for (int maker = 0; maker < 4; ++maker)
        makers.emplace_back([&failures] {
            for (int time = 0; time < 5000; ++time)
                if (!create_own_file(PATH)) ++failures;
        });
    for (std::thread& maker : makers) maker.join();
    EXPECT_EQ(failures, 0);
}

TEST_F(OwnFile, CannotBeMadeInAFoldersPlace) {
    fs::create_directory(PATH);
    EXPECT_FALSE(create_own_file(PATH));
    EXPECT_TRUE(fs::is_directory(PATH));
}

TEST_F(OwnFile, IsOpenedAndNothingElseIs) {
    create_own_file(PATH);
    EXPECT_TRUE(open_own_file(PATH));
    for (const char* what : {"link", "dangling link", "second name", "FIFO", "another user's"}) {
        SetUp();
        plant(what);
        EXPECT_FALSE(open_own_file(PATH)) << what;
    }
    EXPECT_FALSE(open_own_file(FOLDER));
    EXPECT_FALSE(open_own_file("/dev/null"));
}

TEST_F(OwnFile, IsNotWhatALinkByItsNameLeadsTo) {
    const Descriptor file = create_own_file(VICTIM);
    fs::create_symlink(VICTIM, PATH);
    EXPECT_FALSE(is_name_of(PATH, file));
    EXPECT_FALSE(is_name_of("/tmp/own_file_test/nowhere", file));
    EXPECT_TRUE(is_name_of(VICTIM, file));
}

// --- the lock ------------------------------------------------------------------------------------

using Lock = OwnFile;

bool is_locked() {
    const Descriptor file(open(PATH, O_RDWR | O_CLOEXEC));
    return file && flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

TEST_F(Lock, IsThereWhileItIsHeldAndLeavesNothing) {
    {
        const FileLock lock(PATH);
        ASSERT_TRUE(lock);
        EXPECT_TRUE(is_locked());
        EXPECT_EQ(fs::status(PATH).permissions(), fs::perms(0600));
    }
    EXPECT_FALSE(fs::exists(PATH));
}

TEST_F(Lock, TakesOverAFileThatAnEndedProcessLeft) {
    write_file(PATH, "");
    fs::permissions(PATH, fs::perms(0600));
    EXPECT_TRUE(FileLock(PATH));
}

TEST_F(Lock, CannotBeHadWhereOthersCouldKeepIt) {
    for (const char* what : {"link", "dangling link", "FIFO", "open to all", "another user's"}) {
        SetUp();
        plant(what);
        EXPECT_FALSE(FileLock(PATH)) << what;
        EXPECT_TRUE(fs::exists(fs::symlink_status(PATH))) << what;
    }
    SetUp();
    fs::create_directory(PATH);
    EXPECT_FALSE(FileLock(PATH));
}

/// Counts up what is in a file, one process at a time or not.
void count_up(const char* path) {
    const FileLock lock(PATH);
    const int count = std::stoi(read_file(path));
    sched_yield();
    write_file(path, std::to_string(count + 1));
}

TEST_F(Lock, IsHeldByOneProcessAtATime) {
    constexpr int PROCESSES = 8;
    constexpr int TIMES = 50;
    const std::string counter = std::string(FOLDER) + "/counter";
    write_file(counter, "0");
    for (int process = 0; process < PROCESSES; ++process)
        if (fork() == 0) {
            for (int time = 0; time < TIMES; ++time) count_up(counter.c_str());
            _exit(0);
        }
    int status = 0;
    while (wait(&status) > 0) EXPECT_EQ(status, 0);
    EXPECT_EQ(read_file(counter), std::to_string(PROCESSES * TIMES));
    EXPECT_FALSE(fs::exists(PATH));
}

TEST_F(Lock, GoesWithAProcessThatIsKilled) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        const FileLock lock(PATH);
        if (write(ends[1], "", 1) == 1) pause();
        _exit(1);
    }
    char held = 'x';
    EXPECT_EQ(read(ends[0], &held, 1), 1);
    EXPECT_TRUE(is_locked());
    kill(child, SIGKILL);
    EXPECT_TRUE(FileLock(PATH));
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
