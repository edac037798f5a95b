// A whole run over lanes, a memory, a share and a clock that tests play, and all that it tells.
#include "tests/services/backup_daemon/run/run_scene.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace services;
using namespace std::chrono_literals;

RunScene::RunScene(RunGoal wanted)
    : goal(std::move(wanted)), lanes(std::max(goal.lanes, goal.lanes_far)) {
    for (const SelectedChannel& channel : goal.channels)
        world.place.cameras.emplace(channel.guid, channel.folder);
}

void RunScene::begin() {
    TDataBackupConfig task;
    task.taskID = goal.task_id;
    task.taskName = "Night copy";
    const auto tell = [this](RunEvent event, const std::string& task_name,
                             const std::string& detail) {
        EXPECT_EQ(task_name, "Night copy");
        EXPECT_FALSE(has_ended()) << "told after the end: " << detail;
        events.emplace_back(event, detail);
    };
    RunParts parts{.clock = clock,
                   .tell = tell,
                   .places = std::make_unique<LedgerPlaces>(ledger),
                   .memory = std::make_unique<LedgerMemory>(ledger),
                   .lanes = lanes.pool()};
    BackupRun::Listener listener{[this] {
                                     EXPECT_FALSE(has_ended());
                                     when_connected();
                                     ++connected;
                                 },
                                 [this](RunOutcome outcome, const std::string& why) {
                                     ends.emplace_back(outcome, why);
                                     when_ended();
                                 }};
    run = std::make_unique<BackupRun>(std::move(parts), task, goal, std::move(listener));
    run->begin();
}

bool RunScene::play_lane(LaneId lane) {
    if (!lanes.is_ready(lane)) {
        lanes.report(lane, Ready());
        return true;
    }
    const Order* order = lanes.order(lane);
    if (!order) return false;
    auto& reports = to_say_[lanes.order_number(lane)];
    if (reports.empty())
        for (const Report& report : world.carry_out(*order)) reports.push_back(report);
    const Report next = reports.front();
    reports.pop_front();
    lanes.report(lane, next);
    return true;
}

bool RunScene::step() {
    for (const LaneId lane : lanes.open())
        if (play_lane(lane)) return true;
    const auto alarm = clock.next_alarm();
    if (!alarm) return false;
    clock.advance(*alarm);
    return true;
}

void RunScene::play() {
    for (int steps = 0; step(); ++steps) ASSERT_LT(steps, 100'000) << "the run does not end";
}

void RunScene::second() {
    clock.advance(1s);
    run->look_after();
}

void RunScene::seconds(int count) {
    for (int passed = 0; passed < count; ++passed) second();
}

std::vector<std::string> RunScene::told(RunEvent event) const {
    std::vector<std::string> details;
    for (const auto& [kind, detail] : events)
        if (kind == event) details.push_back(detail);
    return details;
}
