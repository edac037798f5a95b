// What the log service answers on HTTP; docs/formats.md, "Log service messages".
#pragma once

#include "services/http_service.h"

namespace services {

// Each query opens the event database for itself; where there is none yet, the log is empty. Both
// throw HttpError 400 for parameters that make no query.

/// The newest events as JSON.
HttpReply json_log(const HttpRequest& request);

/// The same as CSV, below a line that names the columns.
HttpReply csv_log(const HttpRequest& request);

/// Adds the log service's routes.
/// @throws std::runtime_error when the port cannot be had
void add_log_routes(HttpService& service);

}  // namespace services
