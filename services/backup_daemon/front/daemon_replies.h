// The daemon's replies to notices and queries as JSON; docs/formats.md, "Daemon messages".
#pragma once

#include <string>
#include <vector>

#include "services/backup_daemon/run/backup_runner.h"
#include "services/http_service.h"

namespace services {

/// What was asked for is done.
HttpReply done_reply();

/// The queue with its places, up to LAST_SHOWN_POSITION (platform/daemon_messages.h).
/// @param waiting identifiers of all tasks that wait, next one first
HttpReply waiting_reply(const std::vector<std::string>& waiting);

/// What runs.
/// @param limit how many tasks may run side by side
HttpReply running_reply(int limit, const std::vector<RunningTask>& running);

}  // namespace services
