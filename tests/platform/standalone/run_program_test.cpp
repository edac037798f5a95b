// Running programs: exit statuses, output files, limits.
#include "platform/standalone/run_program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/standalone/store/file_handle.h"
#include "platform/utilities.h"
#include "tests/support/patience.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace std::chrono_literals;

constexpr uid_t NOBODY = 65534;

// Of a script that never ends, at first.
constexpr std::chrono::milliseconds LIMIT = 250ms;

/// Whether the process with this status file is there and asleep.
bool sleeps(const std::string& status) {
    std::string text;
    std::getline(std::ifstream(status), text);
    return text.find(") S") != std::string::npos;
}

/// Lets no file grow beyond a few bytes, as a full disk would, to its end.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) : handler_(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &before_);
        signal(SIGXFSZ, handler_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    sighandler_t handler_;
    rlimit before_{};
};

class RunProgram : public ::testing::Test {
protected:
    int shell(const char* script) const {
        return zorv_exec(out_.c_str(), err_.c_str(), nullptr, "/bin/sh", "-c", script,
                         static_cast<const char*>(nullptr));
    }

    /// Runs a script that then sleeps until its time is up. How long that must be for it to get so
    /// far is the machine's affair: it begins anew with twice the time until it has.
    void run_until_time_is_up(const std::string& script, const char* error = nullptr) const {
        const std::string mark = folder_.path() + "/asleep";
        const std::string all = script + "; : > " + mark + "; exec sleep 1000";
        std::filesystem::remove(mark);
        for (auto limit = LIMIT; !std::filesystem::exists(mark) && limit < PATIENCE; limit *= 2)
            EXPECT_EQ(standalone::run_program({.stdout_path = out_.c_str(),
                                               .stderr_path = error,
                                               .arguments = {"/bin/sh", "-c", all.c_str()},
                                               .limit = limit}),
                      ZORV_EXEC_TIMED_OUT);
    }

    TemporaryFolder folder_;
    std::string out_ = folder_.path() + "/out";
    std::string err_ = folder_.path() + "/err";
};

TEST_F(RunProgram, GivesExitStatusesAndSignals) {
    EXPECT_EQ(shell("exit 0"), 0);
    EXPECT_EQ(shell("exit 3"), 3);
    EXPECT_EQ(shell("exit 255"), 255);
    EXPECT_EQ(shell("kill -TERM $$"), 128 + 15);
}

TEST_F(RunProgram, GivesExitStatusesWhereChildrenAreIgnored) {
    const auto handler = signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(shell("exit 3"), 3);
    signal(SIGCHLD, handler);
}

TEST_F(RunProgram, KeepsTheOutputsApart) {
    EXPECT_EQ(shell("echo out; echo err >&2"), 0);
    EXPECT_EQ(read_file(out_), "out\n");
    EXPECT_EQ(read_file(err_), "err\n");
}

TEST_F(RunProgram, SharesOneFileInTheOrderWritten) {
    EXPECT_EQ(zorv_exec(out_.c_str(), out_.c_str(), nullptr, "/bin/sh", "-c",
                        "echo 1; echo 2 >&2; echo 3", static_cast<const char*>(nullptr)),
              0);
    EXPECT_EQ(read_file(out_), "1\n2\n3\n");
}

TEST_F(RunProgram, DiscardsOutputsWithoutAFile) {
    EXPECT_EQ(zorv_exec(nullptr, nullptr, nullptr, "/bin/sh", "-c", "echo x; echo y >&2",
                        static_cast<const char*>(nullptr)),
              0);
}

TEST_F(RunProgram, PassesArgumentsAsTheyAre) {
    EXPECT_EQ(zorv_exec(out_.c_str(), nullptr, nullptr, "/usr/bin/printf", "[%s]", "a b", "$HOME",
                        "", "'\"`", static_cast<const char*>(nullptr)),
              0);
    EXPECT_EQ(read_file(out_), "[a b][$HOME][]['\"`]");
}

TEST_F(RunProgram, GivesTheProgramAnEnvironmentOfTwoAndNoOtherFiles) {
    setenv("SECRET", "x", 1);
    const int leaked = dup(STDOUT_FILENO);
    EXPECT_EQ(zorv_exec(out_.c_str(), nullptr, nullptr, "/usr/bin/env",
                        static_cast<const char*>(nullptr)),
              0);
    EXPECT_EQ(read_file(out_), "PATH=/usr/sbin:/usr/bin:/sbin:/bin\nLC_ALL=C.UTF-8\n");
    EXPECT_EQ(zorv_exec(out_.c_str(), nullptr, nullptr, "/bin/ls", "/proc/self/fd",
                        static_cast<const char*>(nullptr)),
              0);
    EXPECT_EQ(read_file(out_), "0\n1\n2\n3\n");  // 3 is the folder that ls reads
    close(leaked);
    unsetenv("SECRET");
}

TEST_F(RunProgram, GivesTheProgramNoStandardInput) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const standalone::FileHandle read_end(ends[0]);
    const standalone::FileHandle write_end(ends[1]);
    ASSERT_EQ(write(write_end.get(), "secret\n", 7), 7);
    const standalone::FileHandle before(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10));
    ASSERT_EQ(dup2(read_end.get(), STDIN_FILENO), STDIN_FILENO);
    EXPECT_EQ(shell("read line; echo $line"), 0);
    if (before)
        dup2(before.get(), STDIN_FILENO);
    else
        close(STDIN_FILENO);
    EXPECT_EQ(read_file(out_), "\n");
}

TEST_F(RunProgram, HandsNoneOfTheCallersSignalSettingsOn) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    const auto handler = signal(SIGINT, SIG_IGN);
    EXPECT_EQ(shell("kill -TERM $$; exit 0"), 128 + SIGTERM);
    EXPECT_EQ(shell("kill -INT $$; exit 0"), 128 + SIGINT);
    signal(SIGINT, handler);
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(RunProgram, MakesTheEffectiveUserTheRealOne) {
    if (getuid() != 0) GTEST_SKIP() << "only root has another user's rights to give up";
    std::filesystem::permissions(folder_.path(), std::filesystem::perms::all);
    ASSERT_EQ(setegid(NOBODY), 0);
    ASSERT_EQ(seteuid(NOBODY), 0);
    const int status = shell("id -ru; id -u; id -rg; id -g");
    ASSERT_EQ(seteuid(0), 0);
    ASSERT_EQ(setegid(0), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(read_file(out_), "65534\n65534\n65534\n65534\n");
}

TEST_F(RunProgram, MakesANewPrivateFileInThePlaceOfAnOldOne) {
    write_file(out_, "old and long");
    chmod(out_.c_str(), 0666);
    const standalone::FileHandle old(open(out_.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(shell("echo new"), 0);
    EXPECT_EQ(read_file(out_), "new\n");
    struct stat found {};
    ASSERT_EQ(stat(out_.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600U);
    // Whoever had the old one open sees nothing of the new one.
    char buffer[16] = "";
    EXPECT_EQ(read(old.get(), buffer, sizeof buffer), 12);
    EXPECT_STREQ(buffer, "old and long");
}

TEST_F(RunProgram, ReplacesWhatWasPlantedAndWritesThroughNothing) {
    const std::string target = folder_.path() + "/target";
    write_file(target, "precious");
    const auto expect_replaced = [&](const char* what) {
        EXPECT_EQ(shell("echo x"), 0) << what;
        struct stat found {};
        ASSERT_EQ(lstat(out_.c_str(), &found), 0);
        EXPECT_EQ(found.st_mode, S_IFREG | 0600U) << what;
        EXPECT_EQ(found.st_uid, geteuid()) << what;
        EXPECT_EQ(found.st_nlink, 1U) << what;
        EXPECT_EQ(read_file(out_), "x\n") << what;
        EXPECT_EQ(read_file(target), "precious") << what;
        ASSERT_EQ(unlink(out_.c_str()), 0);
    };
    ASSERT_EQ(symlink(target.c_str(), out_.c_str()), 0);
    expect_replaced("link");
    ASSERT_EQ(symlink((target + "2").c_str(), out_.c_str()), 0);
    expect_replaced("dangling link");
    EXPECT_FALSE(std::filesystem::exists(target + "2"));
    ASSERT_EQ(link(target.c_str(), out_.c_str()), 0);
    expect_replaced("second name");
    ASSERT_EQ(mkfifo(out_.c_str(), 0666), 0);
    const standalone::FileHandle reader(open(out_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    expect_replaced("FIFO");
    if (getuid() != 0) GTEST_SKIP() << "only root can give files away";
    write_file(out_, "theirs");
    ASSERT_EQ(chown(out_.c_str(), NOBODY, NOBODY), 0);
    expect_replaced("file of another user");
}

TEST_F(RunProgram, StartsNothingWithoutItsFilesAndLeavesNoneOfThem) {
    const std::string mark = folder_.path() + "/started";
    const std::string script = "touch " + mark;
    const auto run = [&](const std::string& out, const std::string& err) {
        return zorv_exec(out.c_str(), err.c_str(), nullptr, "/bin/sh", "-c", script.c_str(),
                         static_cast<const char*>(nullptr));
    };
    EXPECT_EQ(run("/nonexistent/out", err_), ZORV_EXEC_NO_OUTPUT);
    EXPECT_EQ(run(out_, "/nonexistent/err"), ZORV_EXEC_NO_OUTPUT);
    std::filesystem::create_directory(err_);
    EXPECT_EQ(run(err_, err_), ZORV_EXEC_NO_OUTPUT);
    EXPECT_EQ(run(out_, err_), ZORV_EXEC_NO_OUTPUT);
    EXPECT_TRUE(std::filesystem::is_directory(err_));
    EXPECT_FALSE(std::filesystem::exists(out_));
    EXPECT_FALSE(std::filesystem::exists(mark));
}

TEST_F(RunProgram, SaysThatAProgramCannotBeStarted) {
    write_file(folder_.path() + "/plain", "no program");
    write_file(folder_.path() + "/script", "#!/no/such/interpreter\n");
    chmod((folder_.path() + "/script").c_str(), 0700);
    const auto said = [&](const std::string& program) {
        EXPECT_EQ(zorv_exec(out_.c_str(), err_.c_str(), nullptr, program.c_str(), "argument",
                            static_cast<const char*>(nullptr)),
                  ZORV_EXEC_NOT_STARTED);
        EXPECT_EQ(read_file(out_), "");
        return read_file(err_);
    };
    EXPECT_EQ(said("/nonexistent/program"), "/nonexistent/program: No such file or directory\n");
    EXPECT_EQ(said(folder_.path() + "/plain"), folder_.path() + "/plain: Permission denied\n");
    EXPECT_EQ(said(folder_.path() + "/script"),
              folder_.path() + "/script: No such file or directory\n");
    EXPECT_EQ(zorv_exec(out_.c_str(), out_.c_str(), nullptr, "/nonexistent/program",
                        static_cast<const char*>(nullptr)),
              ZORV_EXEC_NOT_STARTED);
    EXPECT_EQ(read_file(out_), "/nonexistent/program: No such file or directory\n");
}

TEST_F(RunProgram, SaysThatTheTimeWasUpBehindWhatTheProgramSaid) {
    run_until_time_is_up("echo x", out_.c_str());
    EXPECT_EQ(read_file(out_), "x\n/bin/sh: timed out\n");
    run_until_time_is_up("echo x", err_.c_str());
    EXPECT_EQ(read_file(out_), "x\n");
    EXPECT_EQ(read_file(err_), "/bin/sh: timed out\n");
    run_until_time_is_up("echo x");
    EXPECT_EQ(read_file(out_), "x\n");
}

TEST_F(RunProgram, ReportsAProgramThatCannotBeStarted) {
    EXPECT_EQ(zorv_exec(nullptr, nullptr, nullptr, "/nonexistent/program",
                        static_cast<const char*>(nullptr)),
              ZORV_EXEC_NOT_STARTED);
    EXPECT_EQ(zorv_exec(nullptr, nullptr, nullptr, nullptr, static_cast<const char*>(nullptr)),
              ZORV_EXEC_NOT_STARTED);
}

TEST_F(RunProgram, KeepsAtMost64MebibytesAndLetsTheProgramFinish) {
    constexpr std::size_t LONGEST = 64 * 1024 * 1024;
    EXPECT_EQ(shell("head -c 70000000 /dev/zero; exit 5"), 5);
    EXPECT_EQ(std::filesystem::file_size(out_), LONGEST);
}

TEST_F(RunProgram, LeavesNoOutputThatIsNotWhole) {
    const FullDisk disk(5);
    EXPECT_EQ(shell("echo out; echo -n error >&2"), 0);
    EXPECT_EQ(read_file(out_) + read_file(err_), "out\nerror");
    EXPECT_EQ(shell("echo longer"), ZORV_EXEC_NO_OUTPUT);
    EXPECT_EQ(shell("echo longer >&2"), ZORV_EXEC_NO_OUTPUT);
    EXPECT_FALSE(std::filesystem::exists(out_));
    EXPECT_FALSE(std::filesystem::exists(err_));
    EXPECT_EQ(zorv_exec(out_.c_str(), out_.c_str(), nullptr, "/nonexistent/program",
                        static_cast<const char*>(nullptr)),
              ZORV_EXEC_NO_OUTPUT);
    EXPECT_EQ(standalone::run_program({.stdout_path = out_.c_str(),
                                       .stderr_path = out_.c_str(),
                                       .arguments = {"/bin/sh", "-c", "echo -n 12345; sleep 1000"},
                                       .limit = LIMIT}),
              ZORV_EXEC_NO_OUTPUT);
    EXPECT_FALSE(std::filesystem::exists(out_));
}

TEST_F(RunProgram, KillsAProgramAndItsChildrenWhenTheTimeIsUp) {
    run_until_time_is_up("sleep 1000 & echo $! > " + folder_.path() + "/child");
    const std::string status =
        "/proc/" + std::to_string(std::stoi(read_file(folder_.path() + "/child"))) + "/stat";
    // Gone, or a zombie that init has not collected yet.
    for (int waited = 0; waited < PATIENCE_MS && sleeps(status); waited += 50) usleep(50'000);
    EXPECT_FALSE(sleeps(status));
}

TEST_F(RunProgram, DoesNotWaitForWhatAProgramLeavesBehind) {
    EXPECT_EQ(standalone::run_program(
                  {.stdout_path = out_.c_str(),
                   .stderr_path = err_.c_str(),
                   .arguments = {"/bin/sh", "-c", "echo done; sleep 1000 & echo $! >&2; exit 4"},
                   .limit = PATIENCE}),
              4);
    EXPECT_EQ(read_file(out_), "done\n");
    EXPECT_EQ(kill(std::stoi(read_file(err_)), SIGKILL), 0);
}

TEST_F(RunProgram, LeavesNoZombie) {
    EXPECT_EQ(shell("exit 0"), 0);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

}  // namespace
