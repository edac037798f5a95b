// Whether the recorder's date is to be believed when copies are removed by their age.
#include "services/backup_daemon/run/date_trust.h"

#include <algorithm>

#include "platform/standalone/store/calendar.h"

namespace services {
namespace {

constexpr standalone::DayNumber LONGEST_STEP = 31;

/// Whether a day may follow another one that was right.
bool may_follow(const std::string& day, const std::string& before) {
    return standalone::day_number(day) <= standalone::day_number(before) + LONGEST_STEP;
}

/// The doubts that there were before, when they are about the dates that led up to this one.
TaskDate doubts_until(const TaskDate& known, const std::string& today) {
    const bool goes_on = !known.doubted_from.empty() && today >= known.doubted_from &&
                         may_follow(today, known.doubted_until);
    return {known.trusted, goes_on ? known.doubted_from : today, today};
}

std::string words(const std::string& reason, const TaskDate& known) {
    const standalone::DayNumber end = standalone::day_number(known.doubted_from) + LONGEST_STEP + 1;
    return "the date " + known.doubted_until + " is doubted: " + reason +
           "; set the clock if it is wrong, otherwise the date is believed when runs have gone on "
           "until " +
           standalone::day_text(end);
}

}  // namespace

DateJudgement judge_date(const std::optional<TaskDate>& known, const std::string& newest,
                         const std::string& today) {
    const TaskDate before = known.value_or(TaskDate());
    const bool has_run = !before.trusted.empty();
    const std::string& evidence = has_run ? before.trusted : newest;
    if (!evidence.empty() && may_follow(today, evidence))
        return {{std::max(before.trusted, today), "", ""}, ""};
    const TaskDate doubted = doubts_until(before, today);
    if (!may_follow(today, doubted.doubted_from)) return {{today, "", ""}, ""};
    if (evidence.empty()) return {doubted, words("there is no recording to tell it by", doubted)};
    const std::string days =
        std::to_string(standalone::day_number(today) - standalone::day_number(evidence));
    return {doubted, words("it is " + days + " days after the " +
                               (has_run ? "last run's, " : "newest recording's, ") + evidence,
                           doubted)};
}

}  // namespace services
