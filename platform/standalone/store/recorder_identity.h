// Who this recorder is among all that copy to the same share.
#pragma once

#include <string>

#include "platform/standalone/store/database.h"

namespace standalone {

/// The identity that the registry got when it was made, or brought up to the schema that has it: 32
/// lower-case hexadecimal digits, at random, never changed. A copy of a state folder has it, too.
/// @throws std::runtime_error with one line for the user when there is none
std::string recorder_identity(Database& registry);

}  // namespace standalone
