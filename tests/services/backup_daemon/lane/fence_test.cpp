// What a copying process cannot do, whoever has taken it over, and that its work goes on without.
#include "services/backup_daemon/lane/fence.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include "tests/services/backup_daemon/lane/worker_talk.h"
#include "tests/support/temporary_state.h"

using namespace services;

namespace {

constexpr uid_t SOMEBODY = 65534;
constexpr char NOTHING[] = "0000000000000000";
constexpr char CAPABILITY_SETS[][7] = {"CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"};

/// The lines of a process's status, by their names.
std::map<std::string, std::string> status_of(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/status");
    std::map<std::string, std::string> status;
    for (std::string name, value; std::getline(file, name, ':') && std::getline(file, value);)
        status[name] = value.substr(value.find_first_not_of('\t'));
    return status;
}

rlimit limit_of(pid_t process, __rlimit_resource which) {
    rlimit found{};
    EXPECT_EQ(prlimit(process, which, nullptr, &found), 0);
    return found;
}

void expect_limit(pid_t process, __rlimit_resource which, rlim_t most) {
    const rlimit found = limit_of(process, which);
    EXPECT_EQ(found.rlim_cur, most);
    EXPECT_EQ(found.rlim_max, most);
}

long long error_of_opening(const std::string& path, int how) {
    return error_of(standalone::FileHandle(open(path.c_str(), how | O_CLOEXEC, 0600)).get());
}

TEST(Fence, ProcessHasNoCapabilityAndCanGetNone) {
    Worker worker(stay);
    const auto status = status_of(process_of(worker));
    for (const char* set : CAPABILITY_SETS) EXPECT_EQ(status.at(set), NOTHING) << set;
    EXPECT_EQ(status.at("NoNewPrivs"), "1");
}

TEST(Fence, ProcessHasItsLimits) {
    Worker worker(stay);
    const pid_t process = process_of(worker);
    expect_limit(process, RLIMIT_CORE, 0);
    expect_limit(process, RLIMIT_FSIZE, 0);
    expect_limit(process, RLIMIT_NPROC, 0);
    expect_limit(process, RLIMIT_NOFILE, 64);
    EXPECT_EQ(limit_of(process, RLIMIT_AS).rlim_cur, limit_of(process, RLIMIT_AS).rlim_max);
    EXPECT_NE(limit_of(process, RLIMIT_AS).rlim_max, RLIM_INFINITY);
}

TEST(Fence, MemoryIsDumpedForNobody) {
    EXPECT_EQ(found_by_a_process([] { return std::vector<long long>{prctl(PR_GET_DUMPABLE)}; }),
              std::vector<long long>{0});
}

TEST(Fence, MachineWithoutMemoryTakesTheProcessFirst) {
    Worker worker(stay);
    std::ifstream file("/proc/" + std::to_string(process_of(worker)) + "/oom_score_adj");
    int adjustment = 0;
    file >> adjustment;
    EXPECT_EQ(adjustment, 1000);
}

TEST(Fence, MemoryEndsWhereItIsSaidTo) {
    constexpr std::size_t PIECE = 1024 * 1024;
    const auto pieces = found_by_a_process([] {
        std::vector<void*> pieces;
        pieces.reserve(FENCED_MEMORY / PIECE + 1);
        const auto one_more = [] {
            return mmap(nullptr, PIECE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        };
        for (void* piece = one_more(); piece != MAP_FAILED; piece = one_more())
            pieces.push_back(piece);
        munmap(pieces.back(), PIECE);  // telling takes some, and a sanitizer's own books
        return std::vector<long long>{static_cast<long long>(pieces.size())};
    });
    EXPECT_LE(pieces.at(0), static_cast<long long>(FENCED_MEMORY / PIECE));
    EXPECT_GT(pieces.at(0), static_cast<long long>(FENCED_MEMORY / PIECE) / 2);
}

/// A machine that is read-only says so before it looks at who asks.
long long refusal(long long error) {
    return error == EROFS ? EACCES : error;
}

TEST(Fence, ProcessOpensMakesAndDeletesNoFile) {
    if (landlock() < 1) GTEST_SKIP() << "this kernel has no Landlock";
    const TemporaryFolder folder;
    const std::string path = folder.path() + "/file";
    std::ofstream(path) << "content";
    const auto found = found_by_a_process([&] {
        return std::vector<long long>{
            error_of_opening(path, O_RDONLY),
            error_of_opening(path, O_WRONLY),
            error_of_opening(folder.path(), O_RDONLY | O_DIRECTORY),
            error_of_opening(folder.path() + "/new", O_WRONLY | O_CREAT),
            refusal(error_of_opening("/etc/passwd", O_WRONLY)),
            error_of_opening("/proc/self/mem", O_RDONLY),
            error_of_opening("/dev/null", O_WRONLY),
            error_of(unlink(path.c_str())),
            error_of(rename(path.c_str(), (path + "2").c_str())),
            error_of(mkdir((folder.path() + "/folder").c_str(), 0700)),
            error_of(symlink("target", (folder.path() + "/link").c_str())),
            error_of(execl("/bin/true", "true", nullptr))};
    });
    EXPECT_EQ(found, std::vector<long long>(12, EACCES));
    EXPECT_EQ(std::filesystem::file_size(path), 7U);
}

TEST(Fence, ProcessSendsNoSignals) {
    Worker other(stay);
    const pid_t neighbour = process_of(other);
    EXPECT_EQ(found_by_a_process([&] {
                  return std::vector<long long>{error_of(kill(getppid(), SIGCONT)),
                                                error_of(kill(neighbour, SIGCONT))};
              }),
              std::vector<long long>(2, EPERM));
}

TEST(Fence, ProcessReadsWhatTheSystemsLibrariesRead) {
    EXPECT_EQ(found_by_a_process([] {
                  return std::vector<long long>{
                      error_of_opening("/etc/passwd", O_RDONLY),
                      error_of_opening("/usr/bin", O_RDONLY | O_DIRECTORY),
                      error_of_opening("/dev/urandom", O_RDONLY)};
              }),
              std::vector<long long>(3, 0));
}

TEST(Fence, StandardErrorMayBeAFileAndTheProcessOutlivesThat) {
    const TemporaryFolder folder;
    const std::string path = folder.path() + "/log";
    const standalone::FileHandle terminal(dup(STDERR_FILENO));
    const standalone::FileHandle log(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_GE(dup2(log.get(), STDERR_FILENO), 0);
    const auto found = found_by_a_process(
        [] { return std::vector<long long>{error_of(write(STDERR_FILENO, "word", 4))}; });
    ASSERT_GE(dup2(terminal.get(), STDERR_FILENO), 0);
    EXPECT_EQ(found.at(0), EFBIG);
    EXPECT_EQ(std::filesystem::file_size(path), 0U);
}

/// Becomes somebody who may read every file, and nothing else.
void become_reader() {
    constexpr unsigned READING = 1U << CAP_DAC_READ_SEARCH;
    prctl(PR_SET_KEEPCAPS, 1);
    if (setresgid(SOMEBODY, SOMEBODY, SOMEBODY) != 0 ||
        setresuid(SOMEBODY, SOMEBODY, SOMEBODY) != 0)
        _exit(1);
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3]{{READING, READING, READING}, {}};
    if (syscall(SYS_capset, &header, sets) != 0 ||
        prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_DAC_READ_SEARCH, 0, 0) != 0)
        _exit(1);
}

/// Runs something in a process of such a somebody; gives the text that it makes.
std::string told_by_reader(const std::function<std::string()>& what) {
    auto [ours, theirs] = connected_sockets();
    const pid_t reader = fork();
    if (reader == 0) {
        become_reader();
        send_packet(theirs.get(), what());
        _exit(0);
    }
    theirs.close();
    const auto told = wait_for_packet(ours.get());
    waitpid(reader, nullptr, 0);
    return told.value_or("nothing");
}

TEST(Fence, DaemonsCapabilityIsNotItsProcesses) {
    EXPECT_EQ(told_by_reader([] {
                  Worker worker(stay);
                  auto status = status_of(process_of(worker));
                  auto own = status_of(getpid());
                  return own["CapEff"] + " " + status["CapInh"] + status["CapPrm"] +
                         status["CapEff"] + status["CapAmb"] + " " + status["NoNewPrivs"];
              }),
              std::string("0000000000000004 ") + NOTHING + NOTHING + NOTHING + NOTHING + " 1");
}

TEST(Fence, FileThatTheDaemonMayReadTheProcessMayNot) {
    // Within what the kernel lets the process read at all, so that it is the rights which count.
    const std::string secret = "/etc/shadow";
    EXPECT_EQ(told_by_reader([&] {
                  std::ostringstream text;
                  text << error_of_opening(secret, O_RDONLY) << " ";
                  text << found_by_a_process([&] {
                              return std::vector<long long>{error_of_opening(secret, O_RDONLY)};
                          }).at(0);
                  return text.str();
              }),
              "0 " + std::to_string(EACCES));
}

TEST(Fence, ProcessOfNobodyInParticularStartsNoFurtherOne) {
    EXPECT_EQ(told_by_reader([] {
                  return std::to_string(found_by_a_process([] {
                                            const pid_t child = fork();
                                            if (child == 0) _exit(0);
                                            return std::vector<long long>{error_of(child)};
                                        }).at(0));
              }),
              std::to_string(EAGAIN));
}

TEST(Fence, ProcessCannotLookIntoTheDaemon) {
    EXPECT_EQ(told_by_reader([] {
                  const std::string memory = "/proc/" + std::to_string(getpid()) + "/mem";
                  return std::to_string(found_by_a_process([&] {
                                            return std::vector<long long>{
                                                error_of_opening(memory, O_RDONLY)};
                                        }).at(0));
              }),
              std::to_string(EACCES));
}

}  // namespace
