// Whether the recorder's state may have changed, told without reading it.
#pragma once

#include <string>

namespace console {

/// Digits that change when the databases of tasks and runs are written to, when a service comes or
/// goes, and each minute, because what is overdue or has grown too old depends on the clock. The
/// same digits: what was told is still so.
/// @param services which services answer, in any form
/// @param now      seconds since the epoch
std::string state_mark(const std::string& services, long long now);

}  // namespace console
