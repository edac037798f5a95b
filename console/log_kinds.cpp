// The kinds of events by which the page filters the log.
#include "console/log_kinds.h"

#include <algorithm>
#include <iterator>

#include "platform/event_ids.h"

namespace console {

namespace {

constexpr std::string_view KINDS[] = {"changes",  "requests", "runs",
                                      "failures", "sign_ins", "others"};

// Of a run's events those that somebody may have to look after.
constexpr events::Id FAILURES[] = {
    events::RUN_FAILED,   events::FILE_NOT_COPIED,  events::CONNECTION_LOST, events::SHARE_FULL,
    events::WILL_NOT_FIT, events::COPY_NOT_REMOVED, events::COPY_SPOILT};

}  // namespace

std::string_view kind_of(unsigned event_id) {
    if (std::ranges::find(FAILURES, event_id) != std::end(FAILURES)) return "failures";
    if (events::is_of_a_run(event_id)) return "runs";
    switch (events::sub_type(event_id)) {
        case events::sub_type(events::TASK_CREATED):
        case events::sub_type(events::ALERTS_CHANGED):
            return "changes";
        case events::sub_type(events::BACKUP_STARTED):
        case events::sub_type(events::ACTIVATION_REFUSED):
            return "requests";
        case events::sub_type(events::SIGN_IN_FAILED):
            return "sign_ins";
        default:
            return "others";
    }
}

bool is_kind(std::string_view word) {
    return std::ranges::find(KINDS, word) != std::end(KINDS);
}

}  // namespace console
