// What a copying process does: connect, then one order after the other.
#include "services/backup_daemon/lane/worker_body.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <map>

#include "platform/standalone/store/recording_folder.h"
#include "services/backup_daemon/copy/file_copier.h"
#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/lane/worker_messages.h"

namespace services {
namespace {

using Clock = std::chrono::steady_clock;

// Reports on the way are for people and for the daemon's patience; more of them cost speed.
constexpr std::chrono::milliseconds REPORT_PAUSE(250);

class WorkerBody {
public:
    WorkerBody(int socket, const SmbLogin& login)
        : socket_(socket),
          share_(login),
          copier_(share_, {[this](long long offset) { at(offset); },
                           [this](long long offset, const std::string& sha256) {
                               report(Noted{offset, sha256});
                           },
                           [this] { at(offset_); }}) {}

    void run() {
        if (!attempt([this] {
                share_.connect();
                report(Ready());
            }))
            return;
        std::string packet(64UL * 1024, '\0');
        for (;;) {
            const ssize_t size = recv(socket_, packet.data(), packet.size(), 0);
            if (size <= 0) return;
            const Order order = unpack_order(packet.substr(0, static_cast<std::size_t>(size)));
            if (!attempt([&] { std::visit([this](const auto& which) { obey(which); }, order); }))
                return;
        }
    }

private:
    /// Reports what goes wrong; false when the connection is of no more use.
    template <typename Action>
    bool attempt(Action action) {
        try {
            action();
            return true;
        } catch (const CopyFailure& failure) {
            report(Failed{failure.kind, failure.what()});
            return !ends_connection(failure.kind);
        }
    }

    void report(const Report& what) {
        const std::string packet = pack(what);
        // Without the daemon there is nobody to work for.
        if (send(socket_, packet.data(), packet.size(), MSG_NOSIGNAL) < 0) _exit(0);
        reported_ = Clock::now();
    }

    void at(long long offset) {
        offset_ = offset;
        if (Clock::now() - reported_ >= REPORT_PAUSE) report(At{offset});
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
        for (auto& file : standalone::recordings_of_day(order.recordings, order.day)) {
            if (file.alarm ? !order.alarm : !order.normal) continue;
            const auto& there = file.alarm ? alarm : normal;
            const auto found = there.find(safe_name(file.name));
            part.entries.push_back({file.name, file.alarm, file.size, file.modified_ns,
                                    found == there.end() ? -1 : found->second});
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
    SmbShare share_;
    FileCopier copier_;
    long long offset_ = 0;
    Clock::time_point reported_;
};

}  // namespace

void run_worker(int socket, const SmbLogin& login) {
    try {
        WorkerBody(socket, login).run();
    } catch (const std::exception& error) {
        const std::string packet = pack(Failed{FailureKind::other, error.what()});
        send(socket, packet.data(), packet.size(), MSG_NOSIGNAL);
    }
}

}  // namespace services
