// What to do about a problem, in the sentences of docs/operations.md.
#pragma once

#include <string>
#include <vector>

#include "platform/standalone/store/alert_names.h"

namespace standalone {

/// What to do about a run that failed. The daemon's own words for its reason tell, as far as they
/// do. All texts here are constants.
std::string remedy_for_run(const std::string& reason);

/// What to do about a problem that is there.
/// @param detail why a run failed; of other kinds it says nothing here
std::string remedy_for(ProblemKind kind, const std::string& detail);

/// What a test alert asks for: nothing.
std::string remedy_of_test();

/// All that these can answer.
std::vector<std::string> all_remedies();

}  // namespace standalone
