// What the fake's own files share: recording a call and finding out what it was told to do.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace fake {

/// Records a call; throws when told to.
/// @return the code to fail with; nothing when the call is to work
std::optional<int> called(const std::string& name, std::vector<std::string> args);

/// Takes the next queued text for calls of that name.
std::optional<std::string> queued(const std::string& name);

/// `text`, or "(null)".
std::string shown(const char* text);

/// "true" or "false".
std::string shown(bool flag);

/// "line" for a positive source line.
std::string shown_line(int line);

}  // namespace fake
