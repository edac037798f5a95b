// A state folder as the version before the daemon had a database of its own left it.
#pragma once

#include <string>

#include "tests/support/temporary_state.h"

/// RECORDER_STATE points to a new folder with that version's databases; a run was on its way.
class OlderState {
public:
    OlderState();
    ~OlderState();

    const std::string& folder() const { return folder_.path(); }

private:
    TemporaryFolder folder_;
};
