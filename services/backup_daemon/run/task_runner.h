// Who runs tasks, as the queue sees it: begin and cancel in, connection and end out.
#pragma once

#include <functional>
#include <string>

#include "backup/task_record.h"
#include "services/backup_daemon/run/run_outcome.h"

namespace services {

class TaskRunner {
public:
    /// Whom a run tells how it fares; never from within begin() or cancel().
    struct Listener {
        std::function<void()> connected;        ///< at most once: the server has let the run in
        std::function<void(RunOutcome)> ended;  ///< once, and the last that the run does
    };

    virtual ~TaskRunner() = default;

    /// Begins a run. The task must have none.
    /// @param resumed  the daemon's last life ended in the middle of this run
    /// @param listener kept until the run has ended
    /// @throws std::exception when the run cannot begin; the listener hears nothing then
    virtual void begin(const TDataBackupConfig& task, bool resumed, Listener listener) = 0;

    /// Has a run end as cancelled, unless it ends otherwise first. No such run: nothing happens.
    virtual void cancel(const std::string& task_id) = 0;
};

}  // namespace services
