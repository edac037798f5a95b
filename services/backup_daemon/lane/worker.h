// A process that copies for the daemon: it can be ended at any moment, and it ends with the daemon.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>

#include "platform/standalone/store/file_handle.h"
#include "services/backup_daemon/copy/smb_login.h"
#include "services/backup_daemon/lane/worker_messages.h"

namespace services {

/// Handle of one copying process. libsmbclient is not made for threads, and a process that hangs in
/// it can be ended. Destroying the handle kills the process.
class Worker {
public:
    /// What the process does, with its end of the socket; when it returns, the process ends. It may
    /// not throw.
    using Work = std::function<void(int socket)>;

    /// Starts a process that copies to an SMB share: it connects and reports Ready or Failed.
    /// @throws std::runtime_error when there is no process to be had
    explicit Worker(const SmbLogin& login);

    /// Starts a process that does this work, fenced in (lane/fence.h). It has none of the daemon's
    /// descriptors but the socket and the standard ones, is killed when the daemon ends, and hears
    /// no SIGTERM or SIGINT.
    /// @param port to which it may connect, on whatever machine; 0: none
    /// @throws std::runtime_error when there is no process to be had
    explicit Worker(const Work& work, int port = 0);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Becomes readable when there is something to receive.
    int descriptor() const { return socket_.get(); }

    /// Takes note of killed processes that have ended meanwhile. Now and then; it never waits.
    static void reap();

    /// Gives an order to a process that waits for one. What cannot be sent shows as ended().
    /// @param file an open file that the process gets a descriptor of its own of; -1: none
    void send(const WorkerOrder& order, int file = -1);

    /// The next report; nothing when there is none yet, or none will come any more. A process that
    /// says what cannot be understood has ended for all that matters.
    std::optional<WorkerReport> receive();

    /// Whether the process has ended; known once receive() has given nothing.
    bool ended() const { return ended_; }

private:
    standalone::FileHandle socket_;
    pid_t process_ = -1;
    bool ended_ = false;
};

}  // namespace services
