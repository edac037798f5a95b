// Both ends of a talk with a worker, for tests whose worker does something of their own.
#pragma once

#include <gtest/gtest.h>
#include <linux/landlock.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <optional>
#include <vector>

#include "services/backup_daemon/lane/packet_socket.h"
#include "services/backup_daemon/lane/worker.h"
#include "tests/services/backup_daemon/lane/file_answers.h"
#include "tests/support/patience.h"

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
    EXPECT_EQ(poll(&ready, 1, PATIENCE_MS), 1);
    return worker.receive();
}

/// The process of a worker that stays.
inline pid_t process_of(services::Worker& worker) {
    const auto report = next_report(worker);
    return static_cast<pid_t>(std::get<services::At>(report.value()).offset);
}

/// errno of a call that gave this; 0 when it succeeded.
inline long long error_of(long result) {
    return result < 0 ? errno : 0;
}

/// What a process finds when it tries something.
/// @param port that it may connect to
inline std::vector<long long> found_by_a_process(
    const std::function<std::vector<long long>()>& trying, int port = 0) {
    services::Worker worker(
        [&](int socket) {
            say(socket, files_of(trying()));
            services::wait_for_packet(socket);
        },
        port);
    return sizes_of(std::get<services::Files>(next_report(worker).value()));
}

/// Version of the kernel's Landlock; less than 1 when it has none.
inline long landlock() {
    return syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
}
