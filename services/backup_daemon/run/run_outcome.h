// How a run can end.
#pragma once

#include "platform/standalone/store/run_record.h"

namespace services {

using standalone::RunOutcome;

}  // namespace services
