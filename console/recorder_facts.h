// What the recorder is.
#pragma once

#include <string>

#include "console/json.h"

namespace console {

/// The name of the recorder's time zone ("Europe/Berlin"), or how its environment gives it; "" when
/// neither is known.
std::string zone_name();

/// {"name", "version", "zone", "utc_offset"}; the offset is that of `time`.
Json recorder_facts(long long time);

}  // namespace console
