// The history of a task's runs.
#pragma once

#include "console/reply.h"
#include "console/request.h"

namespace console {

/// GET task/<id>/runs: the newest fifty; parameter "before" asks for those with smaller numbers.
Reply get_runs(const Request& request);

/// GET task/<id>/runs/<number>: one run, with the files that it could not copy and, while it goes
/// on, how fast it was.
Reply get_run(const Request& request);

}  // namespace console
