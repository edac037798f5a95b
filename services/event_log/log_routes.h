// What the log service answers on HTTP; docs/formats.md, "Log service messages".
#pragma once

#include "services/http_service.h"

namespace services {

inline constexpr int LOG_PORT = 10150;
inline constexpr char LOG_PATH[] = "/logs/logs";
inline constexpr char LOG_FILE_PATH[] = "/logs/logs/file";

/// Adds the log service's routes. Each request opens the event database for itself, read-only;
/// where there is none yet, the log is empty.
/// @throws std::runtime_error when the port cannot be had
void add_log_routes(HttpService& service);

}  // namespace services
