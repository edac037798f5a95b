// The route table, and the function that walks it.
#include "console/routes.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "console/alert_routes.h"
#include "console/alert_test_route.h"
#include "console/day_route.h"
#include "console/log_routes.h"
#include "console/preview_route.h"
#include "console/recorder_route.h"
#include "console/run_routes.h"
#include "console/session_routes.h"
#include "console/share_route.h"
#include "console/sign_in.h"
#include "console/task_routes.h"

namespace console {

namespace {

/// In place of a segment's text: any text may stand here.
constexpr std::string_view ANY = "*";

/// Who may ask.
enum class For { anybody, administrators };

/// One route. A request has as many segments as it, and no more.
struct Route {
    std::string_view method;
    std::string_view segments[4];
    For who;
    Reply (*answer)(const Request&);
};

// clang-format off
constexpr Route ROUTES[] = {
    {"GET", {"session"}, For::anybody, get_session},
    {"POST", {"session"}, For::anybody, open_session},
    {"DELETE", {"session"}, For::anybody, close_session},
    {"GET", {"tasks"}, For::administrators, get_tasks},
    {"GET", {"task", ANY, "runs"}, For::administrators, get_runs},
    {"GET", {"task", ANY, "runs", ANY}, For::administrators, get_run},
    {"GET", {"alerts"}, For::administrators, get_alerts},
    {"PATCH", {"alerts"}, For::administrators, change_alerts},
    {"POST", {"alerts", "test"}, For::administrators, test_alerts},
    {"GET", {"recorder"}, For::administrators, get_recorder},
    {"GET", {"channel", ANY, "days"}, For::administrators, get_days},
    {"POST", {"schedule", "preview"}, For::administrators, preview_schedule},
    {"GET", {"log"}, For::administrators, get_log},
    {"GET", {"log.csv"}, For::administrators, get_log_file},
    {"POST", {"shares"}, For::administrators, list_shares},
};
// clang-format on

bool fits_path(const Route& route, const Request& request) {
    for (std::size_t at = 0; at < std::size(route.segments); ++at) {
        const std::string_view wanted = route.segments[at];
        if (at >= request.segments.size()) return wanted.empty();
        if (wanted != ANY && wanted != request.segments[at]) return false;
    }
    return request.segments.size() == std::size(route.segments);
}

const Route& find_route(const Request& request) {
    bool known = false;
    for (const Route& route : ROUTES) {
        if (!fits_path(route, request)) continue;
        known = true;
        if (route.method == request.method) return route;
    }
    if (known)
        throw Refusal{.status = 405,
                      .code = "bad_method",
                      .text = "This address does not take the request's method."};
    throw not_found("There is nothing at this address.");
}

}  // namespace

Reply answer(Request& request) {
    // Before anything is refused: a refusal of what still sends its body is cut off on its way.
    request.body = read_body();
    const Route& route = find_route(request);
    if (route.who == For::administrators) require_administrator(request);
    return route.answer(request);
}

}  // namespace console
