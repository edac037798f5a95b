// A worker's body on a share in memory, driven over a socket, for tests of its orders and reports.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "services/backup_daemon/lane/packet_socket.h"
#include "services/backup_daemon/lane/worker_body.h"
#include "services/backup_daemon/lane/worker_messages.h"
#include "tests/services/backup_daemon/copy/copy_fixture.h"

using Reports = std::vector<services::WorkerReport>;

class WorkerFixture : public CopyFixture {
protected:
    /// Gives packets to a worker, lets it work until nothing comes any more, and takes its reports.
    Reports work_on(const Texts& packets) {
        const auto [daemon, process] = services::connected_sockets();
        for (const std::string& packet : packets)
            EXPECT_TRUE(services::send_packet(daemon.get(), packet));
        return reports_of(daemon.get(), process.get());
    }

    /// The same with orders; to each of a copy belongs the source, as it is now.
    Reports work(const std::vector<services::WorkerOrder>& orders) {
        const auto [daemon, process] = services::connected_sockets();
        for (const services::WorkerOrder& order : orders) {
            const bool copies = std::holds_alternative<services::SendFile>(order);
            const standalone::FileHandle file(
                copies ? open(source_path.c_str(), O_RDONLY | O_CLOEXEC) : -1);
            EXPECT_TRUE(services::send_packet_at_once(daemon.get(), pack(order), file.get()));
        }
        return reports_of(daemon.get(), process.get());
    }

    /// The order to copy the source.
    services::SendFile send_file() const {
        const auto size = std::filesystem::file_size(source_path);
        return {job, static_cast<long long>(size), 0};
    }

    services::ShareMaker make_share = [this] { return std::make_unique<MemoryShare>(server); };

    /// What a worker reports of the orders that wait for it.
    Reports reports_of(int daemon, int process) {
        shutdown(daemon, SHUT_WR);
        services::run_worker(process, make_share);
        Reports reports;
        while (const auto packet = services::look_for_packet(daemon).packet)
            reports.push_back(services::unpack_report(*packet));
        return reports;
    }
};

/// A report of a failure as name_of() has it.
inline std::string failed(services::FailureKind kind) {
    return "failed " + std::to_string(static_cast<int>(kind));
}

/// A report in a word, with its kind when something failed.
inline std::string name_of(const services::WorkerReport& report) {
    static constexpr const char* NAMES[] = {"ready",  "files", "at",    "noted", "whole", "removed",
                                            "failed", "room",  "texts", "done",  "seen"};
    if (const auto* failure = std::get_if<services::Failed>(&report)) return failed(failure->kind);
    return NAMES[report.index()];
}

/// What the reports are, without those that depend on how long things take.
inline Texts names_of(const Reports& reports) {
    Texts names;
    for (const services::WorkerReport& report : reports)
        if (!std::holds_alternative<services::At>(report)) names.push_back(name_of(report));
    return names;
}
