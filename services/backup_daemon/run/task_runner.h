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
        /// The server has let the run in. May throw standalone::DatabaseError: it has not been
        /// heard then, and is told again. Once heard, not again.
        std::function<void()> connected;
        /// Once, and the last that the run does. Throws nothing.
        std::function<void(RunOutcome)> ended;
    };

    virtual ~TaskRunner() = default;

    /// Whether a run that begins now can get anywhere. Otherwise tasks wait, and it is asked again
    /// once a second or so.
    virtual bool can_begin() = 0;

    /// Begins a run. The task must have none.
    /// @param resumed  the daemon's last life ended in the middle of this run
    /// @param listener kept until the run has ended
    /// @throws std::exception when the run cannot begin; the listener hears nothing then
    virtual void begin(const TDataBackupConfig& task, bool resumed, Listener listener) = 0;

    /// Has a run end as cancelled, unless it ends otherwise first. No such run: nothing happens.
    virtual void cancel(const std::string& task_id) = 0;

    /// Has the unfinished files of a deleted task removed from its share, once its run, if it has
    /// one, has ended. That is no run, tells nobody and throws nothing.
    /// @param task as it was stored last
    virtual void clean_up(const TDataBackupConfig& task) = 0;
};

}  // namespace services
