// The databases that the commands work on.
#pragma once

#include "platform/standalone/store/database.h"

namespace recorderctl {

/// Opens the configuration database.
/// @throws Failure when there is none, or when its schema is not the one known here
standalone::Database open_config();

/// Opens the registry; otherwise as open_config().
standalone::Database open_registry();

/// Opens the event database; otherwise as open_config().
standalone::Database open_events();

}  // namespace recorderctl
