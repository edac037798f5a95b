// A service's listening sockets: those that systemd made ahead of it, otherwise its own.
#pragma once

#include <chrono>
#include <vector>

#include "platform/standalone/store/file_handle.h"

namespace services {

/// Takes over the sockets that were passed to this process (sd_listen_fds(3): LISTEN_PID and
/// LISTEN_FDS in the environment, which are removed from it).
class ListeningSockets {
public:
    ListeningSockets();

    /// The socket that listens on `port` of 127.0.0.1: the one that was passed, or a new one.
    /// @throws std::runtime_error when there is none and the port cannot be had
    standalone::FileHandle take(int port);

    /// Closes what was passed and nobody took, with an error line for each.
    void close_the_rest();

    /// Closes whatever connects to what was passed, and waits there already, for so long; at once
    /// over when nothing was passed. For a service that cannot serve: systemd starts it anew at
    /// once for whomever it leaves waiting.
    void turn_away(std::chrono::milliseconds time);

private:
    std::vector<standalone::FileHandle> passed_;
};

}  // namespace services
