// One run of one task: ties plan, lanes and figures to the clock until the run tells its end.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/standalone/store/database.h"
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
    std::unique_ptr<DestinationMemory> places;
    std::unique_ptr<CopyMemory> memory;
    std::unique_ptr<LanePool> lanes;
    EarlierPart earlier{};  ///< of a run that is taken up again
};

/// A run goes on by itself, in the loop, until it tells its end. Destroying it drops its lanes; all
/// that they had done stays and is not sent again by the next run.
///
/// What lanes say is taken in its order. Where the memory, or the listener, refuses something with
/// standalone::DatabaseError, that stays in front and is tried again every second, and all that
/// comes meanwhile waits behind it; lanes go on with what they are at. After a minute in which the
/// same thing was refused the run has been interrupted, or has failed where waiting does not help.
class BackupRun {
public:
    struct Listener {
        /// Until it returns without standalone::DatabaseError, and then not again.
        std::function<void()> connected;
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
    RunFigures figures() const { return tally_.figures(message()); }
    RunAccount account() const { return tally_.account(message()); }

    /// Lanes that are open, whether they have connected or not.
    std::size_t lanes() const { return lanes_.size(); }

    /// How often the connection was lost, or not to be had, and tried again after a pause.
    long long retries() const { return retries_; }

private:
    struct Lane {
        bool ready = false;
        std::chrono::milliseconds heard{};
    };

    /// What a lane has said.
    struct Said {
        LaneId lane = 0;
        std::optional<Report> report;  ///< nothing: the lane has ended by itself
        std::string why;               ///< then

        /// Tells how far a file has come, which the next such report tells better.
        bool is_on_the_way() const {
            const auto* at = report ? std::get_if<At>(&*report) : nullptr;
            return at && !at->begins;
        }
    };

    /// What cannot be stored for now.
    struct Refusal {
        std::chrono::seconds since{};
        std::string why;
        std::unique_ptr<Clock::Alarm> again;  ///< null while it is being tried
    };

    /// How the run fares with the server.
    struct Connection {
        explicit Connection(std::chrono::seconds now) : retry(now) {}
        RetryPause retry;
        bool was_told = false;  ///< the listener knows that there is one
        bool stands = false;    ///< until one does, a single lane tries
        /// The shortest that a lane told: the others waited for more than the line. At first only
        /// one lane is asked.
        std::chrono::microseconds round_trip = std::chrono::microseconds::max();
        int losses_told = 0;
    };

    std::chrono::seconds now() const;
    const std::string& message() const { return refusal_ ? refusal_->why : message_; }
    void hear(Said said);
    void advance();
    void take_inbox();
    void go_on();
    void hold(const standalone::DatabaseError& error);
    void tell_notes();
    void give_orders();
    std::size_t most_lanes() const;
    void open_lanes();
    void understand(const Said& said);
    void understand(LaneId lane, const Report& report);
    void connected(LaneId lane, const Ready& ready);
    void follow(LaneId lane, const FailureStep& step);
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
    long long retries_ = 0;
    std::deque<Said> inbox_;          ///< not understood yet, the oldest first
    std::optional<Refusal> refusal_;  ///< of the front of the inbox or, when it is empty, the plan
    std::string message_;             ///< what the run waits for or failed of; mostly ""
    std::unique_ptr<Clock::Alarm> pause_;   ///< no lane is opened before it is over
    std::unique_ptr<Clock::Alarm> ending_;  ///< the run is over and will say so
};

}  // namespace services
