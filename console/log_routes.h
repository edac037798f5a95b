// The event log, filtered: as pages, and as a CSV file.
#pragma once

#include "console/reply.h"
#include "console/request.h"

namespace console {

// Parameters of both: "task" (identifier), "kind" (log_kinds.h), "text" (a part of the words, the
// task's name, the user or the address, whatever the case of its letters), "from" and "to" (seconds
// since the epoch, both included).

/// GET log: the newest events, up to "limit" (1 to 500, otherwise 100), with an id below "before".
/// "older" goes on from there; a page that has looked at many events may be short and still have
/// it.
Reply get_log(const Request& request);

/// GET log.csv: all that the filters let through.
Reply get_log_file(const Request& request);

}  // namespace console
