// How many tasks may run side by side, as configured.
#pragma once

#include <string>

namespace services {

inline constexpr int DEFAULT_PARALLEL_LIMIT = 2;

/// The limit that a configured text means: a decimal number of at least 1. Any other text means the
/// default.
int parse_parallel_limit(const std::string& text);

/// Reads key "max_parallel" of section "backup" afresh. A key that is absent or cannot be read
/// means the default.
int parallel_limit();

}  // namespace services
