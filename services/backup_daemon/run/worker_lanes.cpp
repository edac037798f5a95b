// Lanes that are processes: each copies for one run, and its reports come through the event loop.
#include "services/backup_daemon/run/worker_lanes.h"

#include <utility>

namespace services {
namespace {

constexpr int REPORTS_OF_A_ROUND = 16;

}  // namespace

WorkerLanes::WorkerLanes(event_base* loop, SmbLogin login)
    : loop_(loop), start_([login = std::move(login)] { return std::make_unique<Worker>(login); }) {}

WorkerLanes::WorkerLanes(event_base* loop, Worker::Work work)
    : loop_(loop), start_([work = std::move(work)] { return std::make_unique<Worker>(work); }) {}

LaneId WorkerLanes::open() {
    auto worker = start_();
    const LaneId lane = ++newest_;
    auto watch = EventWatch::readable(loop_, worker->descriptor(), [this, lane] { hear(lane); });
    lanes_[lane] = {std::move(worker), std::move(watch), connecting()};
    return lane;
}

/// The errand begins in the loop: what comes of it at once is not to be told from inside this call.
void WorkerLanes::give(LaneId lane, const Order& order) {
    Lane& given = lanes_.at(lane);
    given.errand = errand_of(order);
    given.beginning = EventWatch::after(loop_, {}, [this, lane] { begin(lane); });
}

void WorkerLanes::drop(LaneId lane) {
    lanes_.erase(lane);
}

void WorkerLanes::begin(LaneId lane) {
    Lane& given = lanes_.at(lane);
    given.beginning.reset();
    go_on(lane, given.errand->start());
}

/// Tells what has come; the rest in the loop's next round, so that a process that talks without end
/// keeps nobody else from being heard. The listener may drop the lane, or end the run and this pool
/// with it (from the loop, later), so the lane is looked up afresh for every report.
void WorkerLanes::hear(LaneId lane) {
    for (int count = 0; count < REPORTS_OF_A_ROUND; ++count) {
        const auto found = lanes_.find(lane);
        if (found == lanes_.end()) return;
        auto& [worker, watch, errand, beginning] = found->second;
        const auto said = worker->receive();
        if (!said && !worker->ended()) return;
        if (!said) return lose(lane, "the copying process ended");
        // An errand that has not begun has asked for nothing yet.
        auto step = errand && !beginning ? errand->hear(*said) : std::nullopt;
        if (!step) return lose(lane, "the copying process said what nobody had asked for");
        go_on(lane, std::move(*step));
    }
}

/// The listener may give the lane its next order as soon as it hears that this one is over.
void WorkerLanes::go_on(LaneId lane, ErrandStep step) {
    auto& [worker, watch, errand, beginning] = lanes_.at(lane);
    if (step.over) errand.reset();
    if (step.ask) {
        worker->send(*step.ask, step.file.get());
        if (worker->ended()) return lose(lane, "the copying process takes no orders");
    }
    for (const Report& report : step.tell)
        if (lanes_.contains(lane)) listener_.reported(lane, report);
}

void WorkerLanes::lose(LaneId lane, const std::string& why) {
    lanes_.erase(lane);
    listener_.lost(lane, why);
}

}  // namespace services
