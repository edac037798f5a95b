// What the kernel refuses a copying process although its user may do it.
#include "services/backup_daemon/lane/call_filter.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/msg.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>
#include <fstream>

#include "tests/services/backup_daemon/lane/worker_talk.h"
#include "tests/support/temporary_state.h"

using namespace services;

namespace {

using Errors = std::vector<long long>;
using standalone::FileHandle;

// Younger than some systems' headers.
constexpr long FCHMODAT2 = 452;

/// Of all that a process tries nothing is allowed.
void expect_refused(const std::function<Errors()>& trying) {
    const Errors found = found_by_a_process(trying);
    EXPECT_EQ(found, Errors(found.size(), EPERM));
}

TEST(CallFilter, ModesOwnersTimesAndAttributesOfFilesStay) {
    const TemporaryFolder folder;
    const std::string path = folder.path() + "/config.db";
    std::ofstream(path) << "passwords";
    expect_refused([&] {
        return Errors{error_of(chmod(path.c_str(), 0666)),
                      error_of(fchmodat(AT_FDCWD, folder.path().c_str(), 0777, 0)),
                      error_of(syscall(FCHMODAT2, AT_FDCWD, path.c_str(), 0666, 0)),
                      error_of(fchmod(STDIN_FILENO, 0666)),
                      error_of(chown(path.c_str(), getuid(), getgid())),
                      error_of(utimensat(AT_FDCWD, path.c_str(), nullptr, 0)),
                      error_of(setxattr(path.c_str(), "user.name", "value", 5, 0)),
                      error_of(truncate(path.c_str(), 0))};
    });
    EXPECT_EQ(std::filesystem::file_size(path), 9U);
}

TEST(CallFilter, LimitsAndPrioritiesOfOtherProcessesStay) {
    const rlimit second{1, 1};
    expect_refused([&] {
        // The daemon would be killed as soon as it has worked for a second.
        cpu_set_t first;
        CPU_ZERO(&first);
        CPU_SET(0, &first);
        return Errors{error_of(prlimit(getppid(), RLIMIT_CPU, &second, nullptr)),
                      error_of(prlimit(getppid(), RLIMIT_CPU, nullptr, nullptr)),
                      error_of(setpriority(PRIO_PROCESS, static_cast<id_t>(getppid()), 19)),
                      error_of(sched_setaffinity(getppid(), sizeof first, &first)),
                      error_of(ptrace(PTRACE_ATTACH, getppid(), 0, 0))};
    });
}

TEST(CallFilter, OwnLimitsAreRead) {
    EXPECT_EQ(found_by_a_process([] {
                  rlimit found{};
                  return Errors{error_of(getrlimit(RLIMIT_NOFILE, &found))};
              }),
              Errors{0});
}

TEST(CallFilter, NobodySignalsInTheProcesssName) {
    expect_refused([] {
        const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
        int daemon = getppid();
        return Errors{error_of(fcntl(socket, F_SETOWN, daemon)),
                      error_of(fcntl(socket, F_SETSIG, SIGKILL)),
                      error_of(ioctl(socket, SIOCSPGRP, &daemon)),
                      error_of(syscall(SYS_tgkill, daemon, daemon, SIGCONT)),
                      error_of(kill(daemon, SIGCONT))};
    });
}

TEST(CallFilter, NoMemoryOutlivesTheProcess) {
    expect_refused([] {
        return Errors{error_of(shmget(IPC_PRIVATE, 1024 * 1024, IPC_CREAT | 0600)),
                      error_of(msgget(IPC_PRIVATE, IPC_CREAT | 0600)),
                      error_of(syscall(SYS_keyctl, 0, -3, 1))};
    });
}

TEST(CallFilter, NoWaysToMoreOfTheKernel) {
    expect_refused([] {
        return Errors{error_of(unshare(CLONE_NEWUSER)),
                      error_of(syscall(SYS_io_uring_setup, 1, nullptr)),
                      error_of(ioctl(STDIN_FILENO, TIOCSTI, "x"))};
    });
}

TEST(CallFilter, SocketThatMakesItsLastOwnerWaitIsRefused) {
    expect_refused([] {
        const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
        const linger hours{1, 65535};
        return Errors{error_of(setsockopt(socket, SOL_SOCKET, SO_LINGER, &hours, sizeof hours))};
    });
}

TEST(CallFilter, NoLetterIsSentToTheLogService) {
    expect_refused([] {
        int ends[2];
        return Errors{error_of(::socket(AF_UNIX, SOCK_DGRAM, 0)),
                      error_of(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
                      error_of(::socket(AF_UNIX, SOCK_RAW, 0)),
                      error_of(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends)),
                      error_of(socketpair(AF_UNIX, SOCK_RAW | SOCK_CLOEXEC, 0, ends))};
    });
}

TEST(CallFilter, NamesAreAskedForByWayOfServicesAndOfTheNetwork) {
    EXPECT_EQ(found_by_a_process([] {
                  return Errors{error_of(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)),
                                error_of(::socket(AF_INET, SOCK_DGRAM, 0))};
              }),
              (Errors{0, 0}));
}

#ifdef __x86_64__
TEST(CallFilter, OtherTableOfCallsEndsTheProcess) {
    constexpr long OTHER_TABLE = 0x40000000;
    Worker worker([](int socket) {
        syscall(OTHER_TABLE + SYS_getpid);
        say(socket, Ready());
    });
    EXPECT_FALSE(next_report(worker));
    EXPECT_TRUE(worker.ended());
}
#endif

/// Two ports of loopback where somebody listens.
class TwoPorts : public testing::Test {
protected:
    struct Listener {
        FileHandle socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
        sockaddr_in address{};

        Listener() {
            address.sin_family = AF_INET;
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            socklen_t size = sizeof address;
            EXPECT_EQ(bind(socket.get(), generic(), size), 0);
            EXPECT_EQ(listen(socket.get(), 5), 0);
            EXPECT_EQ(getsockname(socket.get(), generic(), &size), 0);
        }

        sockaddr* generic() { return reinterpret_cast<sockaddr*>(&address); }

        long long error_of_connecting() {
            return error_of(connect(::socket(AF_INET, SOCK_STREAM, 0), generic(), sizeof address));
        }

        long long error_of_sending_at_once() {
            return error_of(sendto(::socket(AF_INET, SOCK_STREAM, 0), "x", 1, MSG_FASTOPEN,
                                   generic(), sizeof address));
        }
    };

    Listener share;
    Listener service;
};

TEST_F(TwoPorts, ProcessConnectsToTheSharesAlone) {
    if (landlock() < 4) GTEST_SKIP() << "this kernel's Landlock does not know ports";
    const auto found = found_by_a_process(
        [this] {
            return Errors{share.error_of_connecting(), service.error_of_connecting()};
        },
        ntohs(share.address.sin_port));
    EXPECT_EQ(found, (Errors{0, EACCES}));
}

TEST_F(TwoPorts, NoKindOfTcpGetsRoundThat) {
    expect_refused([this] {
        return Errors{service.error_of_sending_at_once(),
                      error_of(::socket(AF_INET, SOCK_STREAM, IPPROTO_MPTCP))};
    });
}

}  // namespace
