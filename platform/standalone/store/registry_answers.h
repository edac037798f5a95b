// What requests ask of the registry, most often without its being opened.
#pragma once

#include <optional>
#include <string>

#include "platform/standalone/store/session_store.h"

namespace standalone {

/// The session of `sid` as the registry has it now; nothing when there is none or it has expired.
/// @throws DatabaseError
std::optional<OwnSession> known_session(const std::string& sid);

/// The value of a key as it is stored now; nothing when there is no such key.
/// @throws DatabaseError
std::optional<std::string> known_key(const std::string& section, const std::string& key);

}  // namespace standalone
