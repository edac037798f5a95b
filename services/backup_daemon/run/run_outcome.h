// How a run can end.
#pragma once

namespace services {

enum class RunOutcome { success, failed, cancelled };

}  // namespace services
