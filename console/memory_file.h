// Files that are nowhere but in memory, for what a tool reads and writes.
#pragma once

#include <string>

#include "platform/standalone/store/file_handle.h"

namespace console {

/// A file without a path, to be read from its beginning. It is gone with the last process that has
/// it open, however that ends: a kill or a power cut leaves nothing of it on a disk.
/// @throws std::runtime_error when there is no memory for it
standalone::FileHandle memory_file(const std::string& text = "");

}  // namespace console
