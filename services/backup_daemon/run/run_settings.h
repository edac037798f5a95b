// What is configured of all runs: how many may go side by side, whether copies are read back, and
// how late runs may be.
#pragma once

namespace services {

inline constexpr int DEFAULT_PARALLEL_LIMIT = 2;

/// Reads key "max_parallel" of section "backup" afresh: a decimal number of at least 1. Anything
/// else means the default.
int parallel_limit();

inline constexpr int DEFAULT_OVERDUE_GRACE = 25;

/// Reads key "overdue_grace" of section "backup" afresh: percent of a schedule's interval, 1 to
/// 1000. Anything else means the default.
int overdue_grace();

/// Whether files are read back and compared before they get their names: key "check_reading" of
/// section "backup", off only when it is "0".
bool check_reading();

}  // namespace services
