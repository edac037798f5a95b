// Lanes that are processes: each copies for one run, and its reports come through the event loop.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "services/backup_daemon/lane/worker.h"
#include "services/backup_daemon/run/errand.h"
#include "services/backup_daemon/run/lane_pool.h"
#include "services/event_watch.h"

namespace services {

/// Destroying the pool kills its processes. Recordings are listed and opened here, from the loop: a
/// process gets open files. One that says what does not fit its order is lost.
class WorkerLanes : public LanePool {
public:
    /// Lanes to an SMB share.
    /// @param loop outlives the pool
    WorkerLanes(event_base* loop, SmbLogin login);

    /// Lanes whose processes do this work.
    /// @param loop outlives the pool
    WorkerLanes(event_base* loop, Worker::Work work);

    void listen(Listener listener) override { listener_ = std::move(listener); }
    LaneId open() override;
    void give(LaneId lane, const Order& order) override;
    void drop(LaneId lane) override;

private:
    struct Lane {
        std::unique_ptr<Worker> worker;
        std::unique_ptr<EventWatch> watch;
        std::unique_ptr<Errand> errand;              ///< null when it has none
        std::unique_ptr<EventWatch> beginning = {};  ///< null once the errand has begun
    };

    void begin(LaneId lane);
    void hear(LaneId lane);
    void go_on(LaneId lane, ErrandStep step);
    void lose(LaneId lane, const std::string& why);

    event_base* loop_;
    std::function<std::unique_ptr<Worker>()> start_;
    Listener listener_;
    LaneId newest_ = 0;
    std::map<LaneId, Lane> lanes_;
};

}  // namespace services
