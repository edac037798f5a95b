// The words for how a backup run began and ended.
#include "platform/standalone/store/run_record.h"

namespace standalone {

std::string_view cause_text(RunCause cause) {
    switch (cause) {
        case RunCause::schedule:
            return "schedule";
        case RunCause::hand:
            return "by hand";
        case RunCause::missed:
            return "missed";
        case RunCause::resumed:
            break;
    }
    return "resumed";
}

std::string_view outcome_text(RunOutcome outcome) {
    switch (outcome) {
        case RunOutcome::success:
            return "success";
        case RunOutcome::failed:
            return "failed";
        case RunOutcome::cancelled:
            return "cancelled";
        case RunOutcome::interrupted:
            break;
    }
    return "interrupted";
}

}  // namespace standalone
