// What a copying process does: connect, then one order after the other.
#include "services/backup_daemon/lane/worker_body.h"

#include <chrono>
#include <map>
#include <optional>

#include "platform/standalone/store/recording_folder.h"
#include "services/backup_daemon/copy/file_copier.h"
#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/lane/packet_socket.h"
#include "services/backup_daemon/lane/worker_messages.h"

namespace services {
namespace {

using Clock = std::chrono::steady_clock;

// Reports on the way are for people and for the daemon's patience; more of them cost speed.
constexpr std::chrono::milliseconds REPORT_PAUSE(250);

/// Thrown when there is nobody left to work for.
struct DaemonGone {};

class WorkerBody {
public:
    WorkerBody(int socket, Share& share)
        : socket_(socket),
          share_(share),
          copier_(share, {.at = [this](long long offset) { at(offset); },
                          .checkpoint =
                              [this](long long offset, const std::string& sha256) {
                                  report(Noted{offset, sha256});
                              },
                          .alive = [this] { at(offset_); }}) {}

    void run() {
        if (attempt([this] { connect(); })) return;
        while (const auto packet = wait_for_packet(socket_)) {
            const Order order = unpack_order(*packet);
            const auto failure =
                attempt([&] { std::visit([this](const auto& which) { obey(which); }, order); });
            if (failure && ends_connection(*failure)) return;
        }
    }

private:
    /// Reports what goes wrong, and tells it.
    template <typename Action>
    std::optional<FailureKind> attempt(Action action) {
        try {
            action();
            return {};
        } catch (const CopyFailure& failure) {
            report(Failed{failure.kind, failure.what()});
            return failure.kind;
        }
    }

    void report(const Report& what) {
        if (!send_packet(socket_, pack(what))) throw DaemonGone();
        reported_ = Clock::now();
    }

    void at(long long offset) {
        offset_ = offset;
        if (Clock::now() - reported_ >= REPORT_PAUSE) report(At{offset});
    }

    void connect() {
        share_.connect();
        report(Ready());
    }

    void obey(const ListDays& order) {
        report(Days{standalone::recording_days(order.recordings, order.first, order.last)});
    }

    void obey(const ListDay& order) {
        std::map<std::string, long long> normal;
        std::map<std::string, long long> alarm;
        if (order.ask_share && order.normal) normal = share_.list(order.remote);
        if (order.ask_share && order.alarm) alarm = share_.list(join_path(order.remote, "alarm"));
        Entries part;
        for (const auto& file : standalone::recordings_of_day(order.recordings, order.day)) {
            if (file.alarm ? !order.alarm : !order.normal) continue;
            const auto& there = file.alarm ? alarm : normal;
            const auto found = there.find(safe_name(file.name));
            part.entries.push_back({.name = file.name,
                                    .alarm = file.alarm,
                                    .size = file.size,
                                    .modified_ns = file.modified_ns,
                                    .remote_size = found == there.end() ? -1 : found->second});
            if (part.entries.size() < ENTRIES_OF_A_REPORT) continue;
            report(part);
            part.entries.clear();
        }
        report(part);
        report(Done());
    }

    void obey(const CopyJob& order) {
        offset_ = 0;
        report(Copied{copier_.copy(order)});
    }

    void obey(const RemoveFiles& order) {
        for (const std::string& file : order.files) {
            share_.remove(file);
            at(0);
        }
        for (const std::string& folder : order.folders) share_.remove_folder(folder);
        report(Done());
    }

    int socket_;
    Share& share_;
    FileCopier copier_;
    long long offset_ = 0;
    Clock::time_point reported_;
};

}  // namespace

void run_worker(int socket, const ShareMaker& make_share) {
    try {
        const auto share = make_share();
        WorkerBody(socket, *share).run();
    } catch (const DaemonGone&) {
    } catch (const std::exception& error) {
        send_packet(socket, pack(Failed{FailureKind::other, error.what()}));
    }
}

}  // namespace services
