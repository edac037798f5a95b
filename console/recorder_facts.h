// What the recorder is, and which of its services are there.
#pragma once

#include <string>

#include "console/json.h"

namespace console {

/// The name of the recorder's time zone ("Europe/Berlin"), or how its environment gives it; "" when
/// neither is known.
std::string zone_name();

/// {"name", "version", "zone", "utc_offset"}; the offset is that of `time`.
Json recorder_facts(long long time);

/// Which services answer.
struct Health {
    bool backup = false;
    bool log = false;
};

/// Asks the backup daemon what runs and the log service for its newest event, for a second each at
/// most.
Health service_health();

/// {"backup", "log"}.
Json services_of(const Health& health);

}  // namespace console
