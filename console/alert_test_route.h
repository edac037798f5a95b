// POST alerts/test: whether alerts would arrive now.
#pragma once

#include "console/reply.h"
#include "console/request.h"

namespace console {

/// Has the backup daemon send a test alert to everybody who is configured, and waits for what comes
/// of it, 70 seconds at most.
/// @throws Refusal 422 "no_receiver", 503 "busy" while another test goes on, 503 "no_daemon"
Reply test_alerts(const Request& request);

}  // namespace console
