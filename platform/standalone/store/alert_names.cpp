// The numbers that the daemon's database has of problems and of alerts' ways, and their names.
#include "platform/standalone/store/alert_names.h"

namespace standalone {

std::string_view problem_text(ProblemKind kind) {
    switch (kind) {
        case ProblemKind::run_failed:
            return "run_failed";
        case ProblemKind::overdue:
            return "overdue";
        case ProblemKind::share_nearly_full:
            return "share_nearly_full";
        case ProblemKind::copies_differ:
            return "copies_differ";
    }
    return "unknown";
}

std::string_view way_text(AlertWay way) {
    switch (way) {
        case AlertWay::mail:
            return "mail";
        case AlertWay::web_hook:
            return "web_hook";
    }
    return "unknown";
}

}  // namespace standalone
