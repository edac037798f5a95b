// The lanes that carry a run's orders out, as the run sees them.
#pragma once

#include <functional>
#include <string>

#include "services/backup_daemon/run/lane_messages.h"

namespace services {

/// A lane of one pool; no number is given twice.
using LaneId = int;

/// Lanes connect by themselves, then carry out one order at a time and report on it. The body is
/// processes (worker_lanes.h); tests play lanes by hand.
class LanePool {
public:
    /// Called from the event loop, never from inside a call of the pool. Nothing is heard of a lane
    /// that was dropped or reported as lost. The functions may drop lanes.
    struct Listener {
        /// What a lane says: Ready once, when it has connected, then reports on its orders.
        std::function<void(LaneId, const Report&)> reported;
        /// A lane has ended by itself and is gone.
        std::function<void(LaneId, const std::string& why)> lost;
    };

    virtual ~LanePool() = default;

    /// Whom to tell. Once, before the first lane is opened.
    virtual void listen(Listener listener) = 0;

    /// Begins to connect one more lane.
    /// @throws std::runtime_error when there is none to be had
    virtual LaneId open() = 0;

    /// Gives an order to a lane that has none.
    virtual void give(LaneId lane, const Order& order) = 0;

    /// Ends a lane, whatever it is at; an unfinished order may have been carried out in part.
    virtual void drop(LaneId lane) = 0;
};

}  // namespace services
