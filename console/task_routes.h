// GET tasks: every task and how it fares, at one moment.
#pragma once

#include "console/reply.h"
#include "console/request.h"

namespace console {

/// The tasks without their passwords. The reply has a tag that changes with anything but the time;
/// whoever has it already gets 304 and nothing else. A second part of the tag is the state's mark:
/// as long as that is the same, nothing is read.
Reply get_tasks(const Request& request);

}  // namespace console
