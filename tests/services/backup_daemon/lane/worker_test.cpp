// A copying process: what it keeps of the daemon, how it ends, and what is heard of it.
#include "services/backup_daemon/lane/worker.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/services/backup_daemon/lane/worker_talk.h"
#include "tests/support/patience.h"
#include "tests/support/temporary_state.h"

using namespace services;

namespace {

using Texts = std::vector<std::string>;

/// Whether a process is there, running or not taken note of.
bool exists(pid_t process) {
    return kill(process, 0) == 0;
}

void wait_until_reaped(pid_t process) {
    for (int waited = 0; waited < PATIENCE_MS && exists(process); waited += 10) {
        Worker::reap();
        usleep(10'000);
    }
    EXPECT_FALSE(exists(process));
}

TEST(Worker, GivesOrdersAndHearsReports) {
    Worker worker([](int socket) {
        say(socket, Ready());
        const auto order = std::get<RemoveFiles>(unpack_order(*wait_for_packet(socket)));
        say(socket, Failed{FailureKind::other, order.files.at(0).path + order.files.at(1).path});
        wait_for_packet(socket);
    });
    EXPECT_TRUE(std::holds_alternative<Ready>(next_report(worker).value()));
    EXPECT_FALSE(worker.receive()) << "nothing has been said yet";
    EXPECT_FALSE(worker.ended());
    worker.send(RemoveFiles{{{"a"}, {"b"}}, {}});
    EXPECT_EQ(std::get<Failed>(next_report(worker).value()).text, "ab");
    EXPECT_FALSE(worker.ended());
}

TEST(Worker, LastReportIsHeardBeforeTheEnd) {
    Worker worker([](int socket) {
        say(socket, Failed{FailureKind::lost, "gone"});
        wait_for_packet(socket);
    });
    EXPECT_EQ(std::get<Failed>(next_report(worker).value()).text, "gone");
    worker.send(RemoveFiles());
    EXPECT_FALSE(next_report(worker));
    EXPECT_TRUE(worker.ended());
}

TEST(Worker, OrderToAProcessThatHasEndedShowsAsEnded) {
    Worker worker([](int) {});
    EXPECT_FALSE(next_report(worker));
    EXPECT_TRUE(worker.ended());
    worker.send(RemoveFiles());
    EXPECT_TRUE(worker.ended());
}

TEST(Worker, OrderThatIsTooLargeShowsAsEnded) {
    Worker worker(stay);
    worker.send(RemoveFiles{{{std::string(LARGEST_PACKET, 'x')}}, {}});
    EXPECT_TRUE(worker.ended());
}

TEST(Worker, DaemonDoesNotWaitForAProcessThatTakesNoOrders) {
    Worker worker(stay);
    for (int times = 0; times < 10'000 && !worker.ended(); ++times) worker.send(RemoveFiles());
    EXPECT_TRUE(worker.ended());
}

TEST(Worker, ProcessThatSpeaksNonsenseHasEnded) {
    for (const std::string& nonsense :
         {std::string("x"), std::string(100, '\xff'), pack(WorkerReport(Removed())) + "x"}) {
        Worker worker([&](int socket) {
            send_packet(socket, nonsense);
            wait_for_packet(socket);
        });
        EXPECT_FALSE(next_report(worker));
        EXPECT_TRUE(worker.ended());
    }
}

TEST(Worker, ProcessThatIsKilledHasEnded) {
    Worker worker(stay);
    kill(process_of(worker), SIGKILL);
    EXPECT_FALSE(next_report(worker));
    EXPECT_TRUE(worker.ended());
}

TEST(Worker, DestructionKillsTheProcessAndItIsTakenNoteOf) {
    pid_t process = 0;
    {
        Worker worker(stay);
        process = process_of(worker);
        EXPECT_TRUE(exists(process));
    }
    wait_until_reaped(process);
}

TEST(Worker, DestructionKillsAProcessThatIsStopped) {
    pid_t process = 0;
    {
        Worker worker(stay);
        process = process_of(worker);
        kill(process, SIGSTOP);
    }
    wait_until_reaped(process);
}

TEST(Worker, ReapingLeavesLivingProcessesAndOtherChildrenAlone) {
    Worker worker(stay);
    const pid_t process = process_of(worker);
    const pid_t other = fork();
    if (other == 0) _exit(7);
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, other, &info, WEXITED | WNOWAIT), 0);
    { Worker killed(stay); }
    Worker::reap();
    EXPECT_TRUE(exists(process));
    int status = 0;
    ASSERT_EQ(waitpid(other, &status, 0), other) << "somebody else has taken note of it";
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST(Worker, SignalsToTheDaemonsGroupDoNotEndIt) {
    for (const int number : {SIGTERM, SIGINT}) signal(number, SIG_DFL);
    Worker worker(stay);
    const pid_t process = process_of(worker);
    for (const int number : {SIGTERM, SIGINT}) kill(process, number);
    // Still there to be stopped: had a signal ended it, this would tell so.
    kill(process, SIGSTOP);
    int status = 0;
    ASSERT_EQ(waitpid(process, &status, WUNTRACED), process);
    EXPECT_TRUE(WIFSTOPPED(status));
}

/// The descriptors of a process.
Texts descriptors(pid_t process) {
    Texts found;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd"))
        found.push_back(entry.path().filename());
    std::ranges::sort(found);
    return found;
}

TEST(Worker, ProcessHasNothingOpenButTheSocket) {
    // As a listening port would be: neither marked nor known to whoever starts the process.
    std::vector<standalone::FileHandle> open;
    for (int count = 0; count < 20; ++count) open.emplace_back(socket(AF_INET, SOCK_STREAM, 0));
    Worker worker(stay);
    EXPECT_EQ(descriptors(process_of(worker)), (Texts{"0", "1", "2", "3"}));
}

TEST(Worker, OpenFileComesWithTheOrder) {
    const TemporaryFolder folder;
    const std::string path = folder.path() + "/recording";
    std::ofstream(path) << "content";
    Worker worker([](int socket) {
        const auto delivery = wait_for_delivery(socket);
        char bytes[8]{};
        const bool got = read(delivery->file.get(), bytes, sizeof bytes) > 0;
        say(socket, Failed{FailureKind::other, got ? bytes : "nothing"});
    });
    const standalone::FileHandle file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::filesystem::remove(path);
    worker.send(SendFile(), file.get());
    EXPECT_EQ(std::get<Failed>(next_report(worker).value()).text, "content");
}

TEST(Worker, SeveralProcessesHaveTheirOwnSockets) {
    Worker one(stay);
    Worker other(stay);
    const pid_t first = process_of(one);
    EXPECT_NE(first, process_of(other));
    kill(first, SIGKILL);
    EXPECT_FALSE(next_report(one));
    EXPECT_TRUE(one.ended());
    EXPECT_FALSE(other.receive());
    EXPECT_FALSE(other.ended());
}

TEST(Worker, ProcessEndsWhenItsWorkIsDone) {
    Worker worker([](int socket) {
        say(socket, At{getpid()});
        while (wait_for_packet(socket)) {
        }
    });
    const pid_t process = process_of(worker);
    shutdown(worker.descriptor(), SHUT_WR);
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, process, &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(info.si_code, CLD_EXITED);
    EXPECT_EQ(info.si_status, 0);
}

TEST(Worker, CopyingProcessTellsThatItCannotConnect) {
    // Bound, so that nobody else has the port, and not listening, so that it refuses.
    const standalone::FileHandle bound(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(bound.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(getsockname(bound.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    Worker worker(SmbLogin{.server = "127.0.0.1",
                           .port = ntohs(address.sin_port),
                           .share = "backup",
                           .user = "ada",
                           .password = "secret"});
    const WorkerReport report = next_report(worker).value();
    EXPECT_EQ(std::get<Failed>(report).kind, FailureKind::lost);
    EXPECT_EQ(std::get<Failed>(report).text.find("//127.0.0.1/backup: "), 0U);
    EXPECT_FALSE(next_report(worker));
    EXPECT_TRUE(worker.ended());
}

TEST(Worker, ProcessDiesWithTheDaemonEvenWhenItHearsNothing) {
    // Orphans come to this process, which can then see how they ended.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    auto [ours, theirs] = connected_sockets();
    const pid_t daemon = fork();
    if (daemon == 0) {
        Worker worker(stay);
        say(theirs.get(), At{process_of(worker)});
        kill(getpid(), SIGKILL);
    }
    const WorkerReport report = unpack_report(*wait_for_packet(ours.get()));
    const auto process = static_cast<pid_t>(std::get<At>(report).offset);
    int status = 0;
    ASSERT_EQ(waitpid(daemon, &status, 0), daemon);
    ASSERT_EQ(waitpid(process, &status, 0), process);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

}  // namespace
