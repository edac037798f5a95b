// Lanes that are processes: each copies for one run, and its reports come through the event loop.
#include "services/backup_daemon/run/worker_lanes.h"

#include <utility>

namespace services {

WorkerLanes::WorkerLanes(event_base* loop, SmbLogin login)
    : loop_(loop), start_([login = std::move(login)] { return std::make_unique<Worker>(login); }) {}

WorkerLanes::WorkerLanes(event_base* loop, Worker::Work work)
    : loop_(loop), start_([work = std::move(work)] { return std::make_unique<Worker>(work); }) {}

LaneId WorkerLanes::open() {
    auto worker = start_();
    const LaneId lane = ++newest_;
    auto watch = EventWatch::readable(loop_, worker->descriptor(), [this, lane] { hear(lane); });
    lanes_[lane] = {std::move(worker), std::move(watch)};
    return lane;
}

void WorkerLanes::give(LaneId lane, const Order& order) {
    lanes_.at(lane).worker->send(order);
}

void WorkerLanes::drop(LaneId lane) {
    lanes_.erase(lane);
}

/// Tells all that has come. The listener may drop the lane, or end the run and this pool with it
/// (from the loop, later), so the lane is looked up afresh for every report.
void WorkerLanes::hear(LaneId lane) {
    for (auto found = lanes_.find(lane); found != lanes_.end(); found = lanes_.find(lane)) {
        Worker& worker = *found->second.worker;
        const auto report = worker.receive();
        if (report) {
            listener_.reported(lane, *report);
            continue;
        }
        if (!worker.ended()) return;
        lanes_.erase(found);
        return listener_.lost(lane, "the copying process ended");
    }
}

}  // namespace services
