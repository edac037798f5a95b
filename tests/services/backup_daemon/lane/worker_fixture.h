// A worker's body on a share in memory, driven over a socket, for tests of its orders and reports.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <vector>

#include "services/backup_daemon/lane/packet_socket.h"
#include "services/backup_daemon/lane/worker_body.h"
#include "services/backup_daemon/lane/worker_messages.h"
#include "tests/services/backup_daemon/copy/copy_fixture.h"

using Reports = std::vector<services::Report>;

class WorkerFixture : public CopyFixture {
protected:
    /// Gives packets to a worker, lets it work until nothing comes any more, and takes its reports.
    Reports work_on(const Texts& packets) {
        const auto [daemon, process] = services::connected_sockets();
        for (const std::string& packet : packets)
            EXPECT_TRUE(services::send_packet(daemon.get(), packet));
        shutdown(daemon.get(), SHUT_WR);
        services::run_worker(process.get(), make_share);
        Reports reports;
        while (const auto packet = services::look_for_packet(daemon.get()).packet)
            reports.push_back(services::unpack_report(*packet));
        return reports;
    }

    Reports work(const std::vector<services::Order>& orders) {
        Texts packets;
        for (const services::Order& order : orders) packets.push_back(pack(order));
        return work_on(packets);
    }

    services::ShareMaker make_share = [this] { return std::make_unique<MemoryShare>(server); };
};

/// A report of a failure as name_of() has it.
inline std::string failed(services::FailureKind kind) {
    return "failed " + std::to_string(static_cast<int>(kind));
}

/// A report in a word, with its kind when something failed.
inline std::string name_of(const services::Report& report) {
    static constexpr const char* NAMES[] = {"ready", "days",   "entries", "at",
                                            "noted", "copied", "done",    "failed"};
    if (const auto* failure = std::get_if<services::Failed>(&report)) return failed(failure->kind);
    return NAMES[report.index()];
}

/// What the reports are, without those that depend on how long things take.
inline Texts names_of(const Reports& reports) {
    Texts names;
    for (const services::Report& report : reports)
        if (!std::holds_alternative<services::At>(report)) names.push_back(name_of(report));
    return names;
}
