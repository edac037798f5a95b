// POST schedule/preview: when a schedule would come due.
#pragma once

#include "console/reply.h"
#include "console/request.h"

namespace console {

/// The next five times of the schedule that the body has, named as in a task's body; none of one
/// that never comes due.
Reply preview_schedule(const Request& request);

}  // namespace console
