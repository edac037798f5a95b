// How a run can end.
#pragma once

namespace services {

enum class RunOutcome {
    success,
    failed,
    cancelled,
    interrupted,  ///< cannot go on for now, and is to be taken up again when it can
};

}  // namespace services
