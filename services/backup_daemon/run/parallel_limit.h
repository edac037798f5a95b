// What is configured of all runs: how many may go side by side, and whether copies are read back.
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

/// Whether files are read back and compared before they get their names: key "check_reading" of
/// section "backup", off only when it is "0".
bool check_reading();

}  // namespace services
