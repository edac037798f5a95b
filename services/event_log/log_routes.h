// What the log service answers on HTTP; docs/formats.md, "Log service messages".
#pragma once

#include "services/http_service.h"

namespace services {

/// Adds the log service's routes. Each request opens the event database for itself, read-only;
/// where there is none yet, the log is empty.
/// @throws std::runtime_error when the port cannot be had
void add_log_routes(HttpService& service);

}  // namespace services
