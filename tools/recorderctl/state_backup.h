// Consistent copies of the recorder's state, made while its services work.
#pragma once

#include <string>

namespace recorderctl {

/// Copies the databases into a new folder, which appears under its name when it is complete.
/// @throws Failure when it exists, or a database cannot be copied or is damaged
void backup_state(const std::string& folder);

/// Makes a copy named after the moment below `place`, which is made where it is missing, and then
/// removes the oldest such copies but `count`. Other things that lie there stay.
/// @return the new copy's folder
/// @throws Failure, as backup_state(); nothing was removed then
std::string backup_in_turn(const std::string& place, int count);

}  // namespace recorderctl
