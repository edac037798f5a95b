// Both ends of a talk with a worker, for tests whose worker does something of their own.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <optional>

#include "services/backup_daemon/lane/packet_socket.h"
#include "services/backup_daemon/lane/worker.h"

/// Sends a report from inside a process.
inline void say(int socket, const services::WorkerReport& report) {
    services::send_packet(socket, pack(report));
}

/// In a process: says who it is, then waits until it is killed.
inline void stay(int socket) {
    say(socket, services::At{getpid()});
    for (;;) pause();
}

/// Waits until there is something to receive.
inline std::optional<services::WorkerReport> next_report(services::Worker& worker) {
    pollfd ready{.fd = worker.descriptor(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&ready, 1, 60'000), 1);
    return worker.receive();
}

/// The process of a worker that stays.
inline pid_t process_of(services::Worker& worker) {
    const auto report = next_report(worker);
    return static_cast<pid_t>(std::get<services::At>(report.value()).offset);
}
