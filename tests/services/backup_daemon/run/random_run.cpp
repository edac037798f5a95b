// One run of random recordings and settings, through whatever random trouble it meets.
#include "tests/services/backup_daemon/run/random_run.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/run/sample_goal.h"

using namespace services;
using namespace std::chrono_literals;

namespace {

constexpr int TROUBLED_STEPS = 150;

// Far more than all that a run of these sizes has to do.
constexpr int MOST_CALM_STEPS = 3000;

constexpr int LARGEST_FILE = 3000;

int below(std::mt19937& random, int count) {
    return static_cast<int>(random() % static_cast<unsigned>(count));
}

std::string day_of(const char* month, int day) {
    return std::string(month) + (day < 10 ? "-0" : "-") + std::to_string(day);
}

Report report_of_kind(int kind) {
    switch (kind) {
        case 0:
            return Ready();
        case 1:
            return Days{{"2024-03-01"}};
        case 2:
            return Entries{{{"23-00-00.mp4", false, 5, 5, -1}}};
        case 3:
            return At{77};
        case 4:
            return Noted{77, "abc"};
        case 5:
            return Copied{{77, 7, "abc"}};
        case 6:
            return Removed();
        case 7:
            return Room();
        case 8:
            return FoundPlace{.below = "elsewhere", .id = "other"};
        case 9:
            return CopySeen{Condition::missing};
        default:
            return Done();
    }
}

/// Whether a report could be an answer to an order; only its time tells then that it is none.
bool may_answer(const Order& order, const Report& report) {
    if (std::holds_alternative<FindPlace>(order)) return std::holds_alternative<FoundPlace>(report);
    if (std::holds_alternative<ListDays>(order)) return std::holds_alternative<Days>(report);
    if (std::holds_alternative<ListDay>(order))
        return std::holds_alternative<Entries>(report) || std::holds_alternative<Done>(report);
    if (std::holds_alternative<CopyJob>(order)) return std::holds_alternative<Copied>(report);
    if (std::holds_alternative<ReadCopy>(order)) return std::holds_alternative<CopySeen>(report);
    if (std::holds_alternative<AskRoom>(order)) return std::holds_alternative<Room>(report);
    return std::holds_alternative<Removed>(report);
}

}  // namespace

RandomRun::RandomRun(unsigned seed) : random_(seed), scene_(goal_of(random_)), checker_(scene_) {
    record_days();
    add_old_copies();
    if (chance(30)) scene_.world.room = below(20'000);
    // Where the run is stored is as troubled as its memory.
    scene_.when_connected = [this] {
        if (scene_.ledger.refuses(0)) throw standalone::DatabaseError("it cannot be stored", 5);
    };
    scene_.begin();
    checker_.check();
}

int RandomRun::below(int count) {
    return ::below(random_, count);
}

RunGoal RandomRun::goal_of(std::mt19937& random) {
    const auto chance = [&](int percent) { return ::below(random, 100) < percent; };
    RunGoal goal = sample_goal();
    if (chance(20)) goal.destination.folder = "";
    if (chance(20)) goal.channels.pop_back();
    if (chance(30))
        goal.channels.push_back(
            {.index = 3, .guid = "g3", .recordings = "/rec/hall", .folder = "Hall"});
    if (chance(10)) goal.missing_channels = {"9"};
    if (chance(60)) goal.first_kept_day = "2024-03-01";
    if (chance(50)) goal.when_full = WhenFull::remove_oldest;
    goal.side_files = chance(30);
    goal.check = chance(80);
    goal.selection.normal = chance(90);
    goal.selection.alarm = !goal.selection.normal || chance(50);
    goal.lanes = 1 + ::below(random, 4);
    return goal;
}

void RandomRun::record_days() {
    for (const SelectedChannel& channel : scene_.goal.channels) {
        const int days = below(4);
        for (int day = 0; day < days; ++day) record_day(channel, day_of("2024-03", 1 + below(5)));
        if (!chance(40)) continue;
        for (int day = below(20); day > 0; --day) make_empty_day(channel);
    }
}

/// Some of them have recordings after all, in a folder that outlives these.
void RandomRun::make_empty_day(const SelectedChannel& channel) {
    const std::string day = day_of("2024-03", 1 + below(20));
    scene_.world.make_day(channel.recordings, day);
    empty_.push_back({channel.recordings, day, "09-00-00.mp4", ""});
}

void RandomRun::record_day(const SelectedChannel& channel, const std::string& day) {
    const int files = below(5);
    for (int number = 0; number < files; ++number) {
        const bool alarm = chance(30);
        const std::string name = (alarm ? "alarm/0" : "0") + std::to_string(number) + "-00-00.mp4";
        const std::string path = channel.folder + "/" + day + "/" + name;
        const int size = below(LARGEST_FILE);
        scene_.world.record(channel.recordings, day, name, size, size * 10LL);
        recordings_.push_back({channel.recordings, day, name, path});
        if (chance(25)) remember(path, day, chance(70) ? size : below(LARGEST_FILE));
        if (alarm ? scene_.goal.selection.alarm : scene_.goal.selection.normal)
            wanted_.insert(path);
    }
}

/// Some of the copies are not there any more, some are another task's, some made room.
void RandomRun::remember(const std::string& path, const std::string& day, long long size) {
    scene_.ledger.add(path, day, size);
    CopiedFile& copy = scene_.ledger.copies.at(path);
    copy.side_file = chance(30);
    copy.removed = chance(10);
    if (chance(20)) scene_.ledger.foreign.insert(path);
    if (copy.removed || chance(20)) return;
    const std::string& folder = scene_.goal.destination.folder;
    const std::string there = folder.empty() ? path : folder + "/" + path;
    scene_.world.share[there] = size;
    if (chance(30)) scene_.ledger.unsampled.insert(path);
    if (chance(10)) scene_.world.spoilt.insert(there);
}

void RandomRun::add_old_copies() {
    const int days = below(3);
    for (int day = 0; day < days; ++day) {
        const std::string name = day_of("2024-02", 1 + below(20));
        const int files = chance(5) ? 130 : below(4);
        for (int file = 0; file < files; ++file)
            remember("Door/" + name + "/" + std::to_string(file) + ".mp4", name, below(2000));
    }
    if (!chance(30)) return;
    const std::string path = "Door/2024-02-02/begun.mp4";
    scene_.ledger.checkpoints[path] = {path, "Door/2024-02-02/.begun.mp4.7.part", 10, "abc"};
}

void RandomRun::checked(const std::function<void()>& step) {
    if (testing::Test::HasFailure()) return;
    step();
    checker_.check();
    if (scene_.has_ended()) checker_.check_end(wanted_);
}

void RandomRun::trouble() {
    const int cancelled = chance(15) ? below(TROUBLED_STEPS) : -1;
    for (int step = 0; step < TROUBLED_STEPS && !scene_.has_ended(); ++step) {
        if (step == cancelled) scene_.run->cancel();
        checked([this] { make_trouble(); });
    }
    scene_.lanes.none_to_be_had.reset();
    scene_.ledger.refuses = [](int) { return false; };
}

LaneId RandomRun::random_lane() {
    const auto open = scene_.lanes.open();
    return open.empty() ? 0 : open[static_cast<std::size_t>(below(static_cast<int>(open.size())))];
}

void RandomRun::make_trouble() {
    const LaneId lane = random_lane();
    if (chance(3)) return change_memory();
    if (chance(3)) return change_world();
    if (chance(2)) return pass_time(below(100) * 1s);
    if (lane == 0 || chance(10)) return pass_time(below(3000) * 1ms);
    if (chance(10)) return trouble_lane(lane);
    scene_.play_lane(lane);
}

void RandomRun::pass_time(std::chrono::milliseconds time) {
    scene_.clock.advance(time);
    if (!scene_.has_ended()) scene_.run->look_after();
}

void RandomRun::trouble_lane(LaneId lane) {
    if (chance(30)) return scene_.lanes.lose(lane);
    if (chance(40)) return say_nonsense(lane);
    const auto kind = static_cast<FailureKind>(below(static_cast<int>(LAST_FAILURE_KIND) + 1));
    // A refusal ends the run at once: too much of it, and no run would get far.
    if (kind != FailureKind::refused || chance(10)) scene_.lanes.fail(lane, kind);
}

/// A lane carries out one order at a time, so nothing tells a report that comes twice from the
/// answer to its next order: only what cannot be meant so is nonsense.
void RandomRun::say_nonsense(LaneId lane) {
    const Report report = report_of_kind(below(11));
    const Order* order = scene_.lanes.order(lane);
    if (std::holds_alternative<Ready>(report) && !scene_.lanes.is_ready(lane)) return;
    if (!order || !may_answer(*order, report)) scene_.lanes.report(lane, report);
}

void RandomRun::change_world() {
    if (chance(30)) scene_.world.room = chance(50) ? below(20'000) : 1LL << 40;
    if (chance(30) && !scene_.world.share.empty())
        scene_.world.share.erase(scene_.world.share.begin());
    if (!empty_.empty() && chance(30)) {
        const Recording& late =
            empty_[static_cast<std::size_t>(below(static_cast<int>(empty_.size())))];
        scene_.world.record(late.folder, late.day, late.name, below(LARGEST_FILE));
    }
    if (recordings_.empty()) return;
    const auto which = static_cast<std::size_t>(below(static_cast<int>(recordings_.size())));
    const Recording& recording = recordings_[which];
    if (chance(50)) {
        scene_.world.record(recording.folder, recording.day, recording.name, below(LARGEST_FILE));
    } else {
        scene_.world.erase(recording.folder, recording.day, recording.name);
        wanted_.erase(recording.path);
    }
}

void RandomRun::change_memory() {
    const int refused = chance(50) ? 0 : below(100);
    scene_.ledger.refuses = [this, refused](int) { return chance(refused); };
    scene_.lanes.none_to_be_had.reset();
    if (chance(20)) scene_.lanes.none_to_be_had = "too many processes";
}

void RandomRun::calm_down() {
    for (int steps = 0; !scene_.has_ended(); ++steps) {
        ASSERT_LT(steps, MOST_CALM_STEPS) << "the run does not end";
        checked([this] {
            const LaneId lane = random_lane();
            const bool said = lane != 0 && scene_.play_lane(lane);
            ASSERT_TRUE(said || scene_.step()) << "the run waits for nothing";
        });
        if (testing::Test::HasFailure()) return;
    }
}

void RandomRun::expect_end_within(std::chrono::minutes time, const std::function<void()>& step) {
    const auto latest = scene_.clock.steady() + time;
    while (!scene_.has_ended()) {
        ASSERT_LT(scene_.clock.steady(), latest) << "the run does not end";
        checked(step);
        if (testing::Test::HasFailure()) return;
    }
}

void RandomRun::lose_server() {
    // Silence, the longest pause and the patience.
    expect_end_within(33min, [this] {
        const LaneId lane = random_lane();
        if (lane != 0 && chance(50)) scene_.lanes.fail(lane, FailureKind::lost, "no route");
        pass_time(below(20) * 1s);
    });
}

void RandomRun::lose_memory() {
    scene_.ledger.refuses = [](int) { return true; };
    // A pause before a connection, and the minute in which the same thing is refused.
    expect_end_within(5min, [this] {
        // Lanes are quick: what they are at may be long, but it is no failure.
        for (int report = 0; report < 20; ++report)
            if (const LaneId lane = random_lane(); lane != 0) scene_.play_lane(lane);
        pass_time(below(20) * 1s);
    });
}
