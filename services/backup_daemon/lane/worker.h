// A process that copies for the daemon: it can be ended at any moment, and it ends with the daemon.
#pragma once

#include <sys/types.h>

#include <optional>

#include "platform/standalone/store/file_handle.h"
#include "services/backup_daemon/copy/smb_share.h"
#include "services/backup_daemon/lane/worker_messages.h"

namespace services {

/// Handle of one copying process. libsmbclient is not made for threads, and a process that hangs in
/// it can be ended. Destroying the handle kills the process.
class Worker {
public:
    /// Starts the process, which connects and reports Ready or Failed.
    /// @throws std::runtime_error when there is no process to be had
    explicit Worker(const SmbLogin& login);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Becomes readable when there is something to receive.
    int descriptor() const { return socket_.get(); }

    /// Takes note of killed processes that have ended meanwhile. Now and then.
    static void reap();

    /// Gives an order to a process that waits for one. What cannot be sent shows as ended().
    void send(const Order& order);

    /// The next report; nothing when there is none yet, or none will come any more.
    std::optional<Report> receive();

    /// Whether the process has ended; known once receive() has given nothing.
    bool ended() const { return ended_; }

private:
    standalone::FileHandle socket_;
    pid_t process_ = -1;
    bool ended_ = false;
};

}  // namespace services
