// What is configured of all runs: how many may go side by side, and whether copies are read back.
#pragma once

namespace services {

inline constexpr int DEFAULT_PARALLEL_LIMIT = 2;

/// Reads key "max_parallel" of section "backup" afresh: a decimal number of at least 1. Anything
/// else means the default.
int parallel_limit();

/// Whether files are read back and compared before they get their names: key "check_reading" of
/// section "backup", off only when it is "0".
bool check_reading();

}  // namespace services
