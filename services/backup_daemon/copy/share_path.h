// Names and paths on a share: what an SMB server takes as a name, and how names are joined.
#pragma once

#include <string>
#include <string_view>

namespace services {

/// A text as one segment of a path that every SMB server takes: no \ / : * ? " < > | and control
/// characters, no device names (CON, LPT1, ...), no blank or dot at the end, at most 200 bytes of
/// valid UTF-8, never empty. What cannot stand becomes "_". A safe name stays as it is.
std::string safe_name(std::string_view name);

/// The longest name that safe_name() gives, in bytes.
inline constexpr std::size_t LONGEST_NAME = 200;

/// A name or path as a server sees it that does not tell upper case from lower case, in whatever
/// script: letters become small ones, one for one.
std::string folded(std::string_view path);

/// Joins two paths; either may be empty.
std::string join_path(const std::string& one, const std::string& other);

/// The folder of a path, "" when it has none.
std::string folder_of(const std::string& path);

}  // namespace services
