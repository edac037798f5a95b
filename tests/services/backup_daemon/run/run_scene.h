// A whole run over lanes, a memory, a share and a clock that tests play, and all that it tells.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "services/backup_daemon/run/backup_run.h"
#include "tests/services/backup_daemon/run/copy_ledger.h"
#include "tests/services/backup_daemon/run/fake_lanes.h"
#include "tests/services/backup_daemon/run/hand_clock.h"
#include "tests/services/backup_daemon/run/recording_world.h"

/// One run. Memory and share may be taken over from an earlier one.
class RunScene {
public:
    using LaneId = services::LaneId;
    using Event = std::pair<services::RunEvent, std::string>;  ///< with its detail

    explicit RunScene(services::RunGoal goal);

    /// Makes the run and has it begin; it has not done anything yet.
    void begin();

    /// Has a lane say what it says next when all goes well: Ready, or more of its order.
    /// @return false when it has no order
    bool play_lane(LaneId lane);

    /// Lets one thing happen: a lane's next report or, when no lane has anything to say, the next
    /// alarm. @return false when nothing is left to happen
    bool step();

    /// Steps until nothing is left to happen.
    void play();

    /// A second as the daemon lives it.
    void second();

    /// So many seconds, in which no lane says anything.
    void seconds(int count);

    bool has_ended() const { return !ends.empty(); }
    services::RunOutcome outcome() const { return ends.at(0).first; }
    /// Why it ended; "" for a reason that there is not, also when it has not.
    std::string why() const { return ends.empty() ? "" : ends[0].second; }
    services::RunFigures figures() const { return run->figures(); }
    /// The details of events of one kind.
    std::vector<std::string> told(services::RunEvent event) const;

    services::RunGoal goal;
    HandClock clock;
    CopyLedger ledger;
    RecordingWorld world;
    FakeLanes lanes;
    std::vector<Event> events;
    int connected = 0;
    std::function<void()> when_connected = [] {};
    std::function<void()> when_ended = [] {};
    std::vector<std::pair<services::RunOutcome, std::string>> ends;
    std::unique_ptr<services::BackupRun> run;

private:
    /// The rest of what the lanes say of their orders, by the orders' numbers.
    std::map<int, std::deque<services::Report>> to_say_;
};
