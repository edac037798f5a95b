// Whether the recorder's state may have changed, told without reading it.
#pragma once

#include <string>

namespace console {

/// Digits that change when the databases of tasks and runs are written to, and each minute, because
/// what is overdue or has grown too old depends on the clock. The same digits: what was told is
/// still so, unless a service has come or gone. Leaves files open, for a process of one request.
/// @param now seconds since the epoch
std::string state_mark(long long now);

}  // namespace console
