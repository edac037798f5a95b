// Files of our own in folders where others can plant theirs.
#pragma once

#include "backup/descriptor.h"
#include "backup/file_ptr.h"

/// Makes a new file with mode 0600, for reading and writing. What lies at `path`, a link among it,
/// is replaced and not followed; a folder is not replaced. Whoever does this at the same time gets
/// a file, too, and the one that is made last has the name.
/// @return none when it cannot be made
Descriptor create_own_file(const char* path);

/// Opens a file for reading, without waiting, if it is surely the effective user's alone: a regular
/// file, owned by that user, with no other name, and not reached through a link at `path`.
/// @return null when it is anything else, or cannot be opened
FilePtr open_own_file(const char* path);

/// @return whether `path` itself, and not what a link there leads to, is the open file
bool is_name_of(const char* path, const Descriptor& file);
