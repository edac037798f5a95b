// A process that copies for the daemon: it can be ended at any moment, and it ends with the daemon.
#include "services/backup_daemon/lane/worker.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "services/backup_daemon/copy/smb_share.h"
#include "services/backup_daemon/lane/errno_failure.h"
#include "services/backup_daemon/lane/fence.h"
#include "services/backup_daemon/lane/packet_socket.h"
#include "services/backup_daemon/lane/worker_body.h"

namespace services {
namespace {

constexpr int WORKERS_SOCKET = 3;

/// A process that hangs in the kernel does not end at once, and nobody should wait for it. Children
/// belong to the whole process, not to the object that made them: so does this list.
std::vector<pid_t>& killed() {
    static std::vector<pid_t> processes;
    return processes;
}

/// In the new process: keeps nothing of the daemon's but the socket. The listening ports above all:
/// the next daemon must be able to have them.
void become_worker(int socket, pid_t daemon) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != daemon) _exit(0);
    for (const int number : {SIGTERM, SIGINT}) signal(number, SIG_IGN);
    if (socket != WORKERS_SOCKET && dup2(socket, WORKERS_SOCKET) < 0) _exit(1);
    close_range(WORKERS_SOCKET + 1, ~0U, 0);
}

/// The new process's life. Nothing may get out of here and run as a second daemon, and a process
/// that cannot be fenced in does not live.
[[noreturn]] void live(int socket, pid_t daemon, const Worker::Work& work, int port) noexcept {
    become_worker(socket, daemon);
    fence_in(port);
    work(WORKERS_SOCKET);
    _exit(0);
}

}  // namespace

Worker::Worker(const SmbLogin& login)
    : Worker(
          [&login](int socket) {
              run_worker(socket, [&login] { return std::make_unique<SmbShare>(login); });
          },
          login.port) {}

Worker::Worker(const Work& work, int port) {
    auto [ours, theirs] = connected_sockets();
    const pid_t daemon = getpid();
    process_ = fork();
    if (process_ < 0) fail_with_errno("fork");
    if (process_ == 0) live(theirs.get(), daemon, work, port);
    socket_ = std::move(ours);
}

Worker::~Worker() {
    kill(process_, SIGKILL);
    killed().push_back(process_);
    reap();
}

void Worker::reap() {
    std::erase_if(killed(), [](pid_t process) { return waitpid(process, nullptr, WNOHANG) != 0; });
}

void Worker::send(const WorkerOrder& order, int file) {
    if (!send_packet_at_once(socket_.get(), pack(order), file)) ended_ = true;
}

std::optional<WorkerReport> Worker::receive() {
    const Received received = look_for_packet(socket_.get());
    if (received.ended) ended_ = true;
    if (!received.packet) return {};
    try {
        return unpack_report(*received.packet);
    } catch (const std::exception&) {
        ended_ = true;
        return {};
    }
}

}  // namespace services
