// Schedules in any time zone: the next time lies ahead, at the hour asked for, and comes once.
#include "platform/standalone/store/schedule.h"

#include <algorithm>

#include "tests/fuzz/fuzz.h"

namespace {

using fuzz::check;
using standalone::NextRun;
using standalone::ScheduleStep;
using standalone::TimeZone;

constexpr long long DAY = 24LL * 60 * 60;
constexpr long long HOUR = 3600;

/// Takes the next number off a text of numbers and blanks; 0 behind the last.
long long take_number(std::string_view& rest) {
    return fuzz::number(fuzz::take_piece(rest, ' '));
}

int take_int(std::string_view& rest) {
    return static_cast<int>(take_number(rest));
}

struct Scene {
    TDataBackupConfig task;
    long long now = 0;
    long long change = 0;  ///< when the zone's offset changes
    long long before = 0;  ///< offsets in seconds
    long long after = 0;

    standalone::TimeZone zone() const {
        return [this](long long instant) { return instant < change ? before : after; };
    }
};

Scene read_scene(std::string_view rest) {
    Scene scene;
    scene.task.enable = true;
    scene.task.scheduleType = take_int(rest);
    scene.task.scheduleWeekly = take_int(rest);
    scene.task.scheduleHour = take_int(rest);
    scene.task.scheduleMin = take_int(rest);
    scene.task.scheduleEveryHours = take_int(rest);
    // Clocks that a computer can show, and zones that there are.
    constexpr long long LAST_SECOND = 253402300799;  // of the year 9999
    scene.now = std::clamp(take_number(rest), -LAST_SECOND, LAST_SECOND);
    scene.change = scene.now + std::clamp(take_number(rest), -40 * DAY, 40 * DAY);
    scene.before = std::clamp(take_number(rest), -14 * HOUR, 14 * HOUR);
    scene.after = scene.before + std::clamp(take_number(rest), -2 * HOUR, 2 * HOUR);
    return scene;
}

/// What local clocks show at an instant, in seconds of the day.
long long shown_at(long long instant, const standalone::TimeZone& zone) {
    return ((instant + zone(instant)) % DAY + DAY) % DAY;
}

bool can_come_due(const TDataBackupConfig& task) {
    const bool time = task.scheduleHour >= 0 && task.scheduleHour < 24 && task.scheduleMin >= 0 &&
                      task.scheduleMin < 60;
    if (task.scheduleType == SCHEDULE_WEEKLY)
        return time && task.scheduleWeekly >= 0 && task.scheduleWeekly <= 7;
    if (task.scheduleType == SCHEDULE_HOURS)
        return time && task.scheduleEveryHours >= 1 && task.scheduleEveryHours <= 24 * 366;
    return time && task.scheduleType == SCHEDULE_DAILY;
}

/// The longest time between two runs, with what a changing clock adds.
long long longest_wait(const TDataBackupConfig& task) {
    if (task.scheduleType == SCHEDULE_HOURS) return task.scheduleEveryHours * HOUR;
    return (task.scheduleType == SCHEDULE_WEEKLY ? 7 : 1) * DAY + 2 * HOUR;
}

void check_due(const Scene& scene, long long due) {
    const TDataBackupConfig& task = scene.task;
    check(due > scene.now, "the next time lies ahead");
    check(due - scene.now <= longest_wait(task), "and not further than the next run");
    if (task.scheduleType == SCHEDULE_HOURS) return;
    const long long wanted = task.scheduleHour * HOUR + task.scheduleMin * 60LL;
    const long long shown = shown_at(due, scene.zone());
    // At the change itself clocks may have skipped the hour.
    check(shown == wanted || due == scene.change, "clocks show the hour that was asked for");
    const standalone::DayNumber day = standalone::local_day(due, scene.zone());
    check(task.scheduleType == SCHEDULE_DAILY || due == scene.change ||
              standalone::weekday_of(day) == task.scheduleWeekly % 7,
          "on the day of the week that was asked for");
}

void check_steps(const Scene& scene) {
    const standalone::ScheduleStep first =
        standalone::look_at_schedule(scene.task, {}, scene.now, scene.zone());
    check(!first.run && first.next, "a new schedule waits for its time");
    const long long due = first.next->due;
    const standalone::ScheduleStep same =
        standalone::look_at_schedule(scene.task, first.next, scene.now, scene.zone());
    check(!same.run && same.next && same.next->due == due, "until then nothing happens");
    const standalone::ScheduleStep run =
        standalone::look_at_schedule(scene.task, first.next, due, scene.zone());
    check(run.run && run.next && run.next->due > due, "then it runs, and the next time lies ahead");
    const standalone::ScheduleStep again =
        standalone::look_at_schedule(scene.task, run.next, due, scene.zone());
    check(!again.run, "it runs once");
}

/// However old or far ahead what is remembered is, the next time lies ahead.
void check_remembered(const Scene& scene, long long due) {
    const standalone::NextRun remembered{standalone::schedule_rule(scene.task), due};
    const standalone::ScheduleStep step =
        standalone::look_at_schedule(scene.task, remembered, scene.now, scene.zone());
    check(step.next && step.next->due > scene.now, "whatever is remembered, a next time is found");
    check(!step.run || due <= scene.now, "nothing runs before its time");
}

}  // namespace

// Numbers between blanks: type, day of the week, hour, minute, interval; now; the zone's change as
// seconds from now, its offset, and how far that changes; what is remembered as due.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = fuzz::text(data, size);
    const Scene scene = read_scene(input);
    const auto due = standalone::first_due(scene.task, scene.now, scene.zone());
    check(due.has_value() == can_come_due(scene.task), "just what is possible comes due");
    if (!due) return 0;
    check_due(scene, *due);
    check_steps(scene);
    const std::size_t last = input.rfind(' ');
    if (last != std::string::npos)
        check_remembered(scene, std::strtoll(input.c_str() + last, nullptr, 10));
    return 0;
}
