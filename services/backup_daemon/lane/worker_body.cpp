// What a copying process does: connect, then one order after the other.
#include "services/backup_daemon/lane/worker_body.h"

#include <chrono>
#include <optional>
#include <thread>
#include <utility>

#include "services/backup_daemon/copy/file_copier.h"
#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/lane/file_removal.h"
#include "services/backup_daemon/lane/packet_socket.h"
#include "services/backup_daemon/lane/read_back.h"
#include "services/backup_daemon/lane/worker_messages.h"

namespace services {
namespace {

using Clock = std::chrono::steady_clock;

// Reports on the way are for people and for the daemon's patience; more of them cost speed.
constexpr std::chrono::milliseconds REPORT_PAUSE(250);

// Room that is awaited is looked for once a second; file systems that put removal off do it within
// half a minute.
constexpr std::chrono::seconds ROOM_PAUSE(1);
constexpr std::chrono::seconds ROOM_PATIENCE(40);

/// Thrown when there is nobody left to work for.
struct DaemonGone {};

class WorkerBody {
public:
    WorkerBody(int socket, Share& share)
        : socket_(socket),
          share_(share),
          copier_(share, {.begins = [this](long long offset) { begins(offset); },
                          .at = [this](long long offset) { at(offset); },
                          .checkpoint =
                              [this](long long offset, const std::string& sha256) {
                                  report(Noted{offset, sha256});
                              },
                          .alive = [this] { at(offset_); }}) {}

    void run() {
        if (attempt([this] { connect(); })) return;
        while (auto delivery = wait_for_delivery(socket_)) {
            const WorkerOrder order = unpack_order(delivery->packet);
            file_ = std::move(delivery->file);
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

    void report(const WorkerReport& what) {
        if (!send_packet(socket_, pack(what))) throw DaemonGone();
        reported_ = Clock::now();
    }

    /// Never left out: what was on the share before must not be taken for sent.
    void begins(long long offset) {
        offset_ = offset;
        report(At{offset, true});
    }

    void at(long long offset) {
        offset_ = offset;
        if (Clock::now() - reported_ >= REPORT_PAUSE) report(At{offset, false});
    }

    void connect() {
        using std::chrono::microseconds;
        const auto round_trip = share_.connect();
        copier_.pace().answered(round_trip);
        report(Ready{std::chrono::duration_cast<microseconds>(round_trip).count()});
    }

    void obey(const AskFiles& order) {
        const auto there = share_.list(order.folder, {order.names.begin(), order.names.end()});
        Files answer;
        for (const std::string& name : order.names) {
            const auto found = there.find(name);
            answer.files.push_back(found == there.end() ? FileState{.size = -1} : found->second);
        }
        report(answer);
    }

    void obey(const SendFile& order) {
        offset_ = 0;
        const SourceFile source(std::move(file_), join_path(order.job.recordings, order.job.source),
                                order.size, order.modified_ns);
        report(send(order.job, source));
    }

    /// Who makes room for the rest of a file must know how much of it is there.
    Whole send(const CopyJob& job, const SourceFile& source) {
        try {
            const WholeCopy copy = copier_.copy(job, source);
            return {copy.sha256, copy.share_modified_ns};
        } catch (const CopyFailure& failure) {
            if (failure.kind == FailureKind::full) report(At{offset_, false});
            throw;
        }
    }

    void obey(const RemoveFiles& order) {
        report(Removed{remove_files(share_, order, [this] { at(0); })});
    }

    void obey(const ReadBack& order) {
        std::optional<SourceFile> source;
        if (file_) source.emplace(std::move(file_), order.path, order.size, 0);
        const auto* compared = source ? &*source : nullptr;
        report(CopySeen{read_back(share_, order, compared, [this] { at(0); })});
    }

    void obey(const AskRoom& order) {
        const auto latest = Clock::now() + ROOM_PATIENCE;
        auto room = share_.room();
        while (room && room->free < order.awaited && Clock::now() < latest) {
            std::this_thread::sleep_for(ROOM_PAUSE);
            room = share_.room();
        }
        report(Room{room});
    }

    void obey(const ReadTexts& order) {
        Contents answer;
        for (const std::string& path : order.paths) answer.texts.push_back(read_text(share_, path));
        report(answer);
    }

    void obey(const WriteText& order) {
        write_text(share_, order.path, order.temporary, order.text);
        report(Done());
    }

    void obey(const FolderClaim& order) {
        claim_folder(share_, order);
        report(Done());
    }

    int socket_;
    Share& share_;
    FileCopier copier_;
    standalone::FileHandle file_;  ///< that came along with the order
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
