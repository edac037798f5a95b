// The description that format "ostra" puts beside a copy.
#pragma once

#include <string>

#include "services/backup_daemon/copy/file_copier.h"

namespace services {

/// Where the description of a file lies.
std::string side_file_path(const std::string& path);

/// A JSON object with channel, guid, start, length and SHA-256; docs/formats.md.
std::string side_file_text(const SideFile& side_file, const CopyResult& copy);

}  // namespace services
