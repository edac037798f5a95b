// Puts a copy of the recorder's state in the place of the present one.
#pragma once

#include <string>

namespace recorderctl {

/// Checks the copy, brings it up to the newest schemas and puts it into the state folder. The
/// databases that were there lie in a dated folder in it from then on. Alerts that waited when the
/// copy was made are left out of it: they have arrived since.
/// @return that folder; "" when there were none
/// @throws Failure when the copy is not whole and sound, or a database is in use; all is as before
std::string restore_state(const std::string& backup);

}  // namespace recorderctl
