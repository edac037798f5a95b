// One run of one task: ties plan, lanes and figures to the clock until the run tells its end.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "services/backup_daemon/run/lane_pool.h"
#include "services/backup_daemon/run/retry_pause.h"
#include "services/backup_daemon/run/run_outcome.h"
#include "services/backup_daemon/run/run_plan.h"
#include "services/backup_daemon/run/run_tally.h"
#include "services/backup_daemon/tell/run_events.h"
#include "services/clock.h"

namespace services {

/// What a run works with.
struct RunParts {
    Clock& clock;  ///< outlives the run
    EventSink tell;
    std::unique_ptr<CopyMemory> memory;
    std::unique_ptr<LanePool> lanes;
    EarlierPart earlier{};  ///< of a run that is taken up again
};

/// A run goes on by itself, in the loop, until it tells its end. Destroying it drops its lanes; all
/// that they had done stays and is not sent again by the next run.
class BackupRun {
public:
    struct Listener {
        std::function<void()> connected;  ///< once
        /// Once, and the last that the run does; it may be destroyed then.
        std::function<void(RunOutcome, const std::string& why)> ended;
    };

    BackupRun(RunParts parts, TDataBackupConfig task, RunGoal goal, Listener listener);
    BackupRun(const BackupRun&) = delete;
    BackupRun& operator=(const BackupRun&) = delete;

    /// Begins; the listener hears of everything later, from the loop.
    void begin();

    /// Ends the run as cancelled; the listener hears of it from the loop.
    void cancel();

    /// Reads the speed and drops lanes that say nothing any more. Once a second or so.
    void look_after();

    const TDataBackupConfig& task() const { return task_; }
    RunFigures figures() const { return tally_.figures(message_); }

private:
    struct Lane {
        bool ready = false;
        std::chrono::milliseconds heard{};
    };

    /// How the run fares with the server.
    struct Connection {
        explicit Connection(std::chrono::seconds now) : retry(now) {}
        RetryPause retry;
        bool was_told = false;  ///< the listener knows that there is one
        bool stands = false;    ///< until one does, a single lane tries
        int losses_told = 0;
    };

    std::chrono::seconds now() const;
    void advance();
    void tell_notes();
    void give_orders();
    void open_lane();
    void hear(LaneId lane, const Report& report);
    void understand(LaneId lane, const Report& report);
    void connected(LaneId lane);
    void fail(LaneId lane, const Failed& failed);
    void drop(LaneId lane);
    void lose(LaneId lane, const std::string& why);
    void wait(const std::string& why);
    void finish();
    void end(RunOutcome outcome, const std::string& why);

    RunParts parts_;
    const TDataBackupConfig task_;
    const Listener listener_;
    RunTally tally_;
    RunPlan plan_;
    std::map<LaneId, Lane> lanes_;
    Connection connection_;
    std::string message_;                   ///< what the run waits for or failed of; mostly ""
    std::unique_ptr<Clock::Alarm> pause_;   ///< no lane is opened before it is over
    std::unique_ptr<Clock::Alarm> ending_;  ///< the run is over and will say so
};

}  // namespace services
