// A process that copies for the daemon: it can be ended at any moment, and it ends with the daemon.
#include "services/backup_daemon/lane/worker.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include "services/backup_daemon/lane/worker_body.h"

namespace services {
namespace {

// The kernel's default limit of one packet is a little above 200 KiB.
constexpr std::size_t LARGEST_PACKET = 256UL * 1024;

/// A process that hangs in the kernel does not end at once, and nobody should wait for it.
std::vector<pid_t>& killed() {
    static std::vector<pid_t> processes;
    return processes;
}

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// In the new process: keeps nothing of the daemon's but the socket. The listening ports above all:
/// the next daemon must be able to have them.
void become_worker(int socket, pid_t daemon) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != daemon) _exit(0);
    for (const int number : {SIGTERM, SIGINT}) signal(number, SIG_IGN);
    if (socket != 3 && dup2(socket, 3) < 0) _exit(1);
    close_range(4, ~0U, 0);
}

}  // namespace

Worker::Worker(const SmbLogin& login) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) fail("socketpair");
    socket_ = standalone::FileHandle(ends[0]);
    const standalone::FileHandle theirs(ends[1]);
    const pid_t daemon = getpid();
    process_ = fork();
    if (process_ < 0) fail("fork");
    if (process_ > 0) return;
    become_worker(theirs.get(), daemon);
    run_worker(3, login);
    _exit(0);
}

Worker::~Worker() {
    kill(process_, SIGKILL);
    killed().push_back(process_);
    reap();
}

void Worker::reap() {
    std::erase_if(killed(), [](pid_t process) { return waitpid(process, nullptr, WNOHANG) != 0; });
}

void Worker::send(const Order& order) {
    const std::string packet = pack(order);
    if (::send(socket_.get(), packet.data(), packet.size(), MSG_NOSIGNAL) < 0) ended_ = true;
}

std::optional<Report> Worker::receive() {
    std::string packet(LARGEST_PACKET, '\0');
    const ssize_t size = recv(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT);
    if (size > 0) {
        packet.resize(static_cast<std::size_t>(size));
        return unpack_report(packet);
    }
    ended_ = ended_ || size == 0 || (errno != EAGAIN && errno != EINTR);
    return {};
}

}  // namespace services
