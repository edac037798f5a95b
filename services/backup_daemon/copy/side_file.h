// The description that format "ostra" puts beside a copy.
#pragma once

#include <string>

#include "services/backup_daemon/copy/final_name.h"
#include "services/backup_daemon/copy/share.h"

namespace services {

/// What a description beside a copy says of the recording.
struct SideFile {
    int channel = 0;
    std::string guid;
    long long start = 0;  ///< seconds since the epoch
};

/// Where the description of a file lies.
std::string side_file_path(const std::string& path);

/// A JSON object with channel, guid, start, length and SHA-256, and a line end; docs/formats.md.
/// @param length bytes of the copy
/// @param sha256 of its content, hexadecimal
std::string side_file_text(const SideFile& side_file, long long length, const std::string& sha256);

/// How the description of a copy of that length and content ends, and no other one's.
std::string side_file_end(long long length, const std::string& sha256);

/// Puts a description beside a copy, in the place of an older one of the same recording. It gets
/// its name when it is whole.
/// @param naming the description's own names
/// @param text   what side_file_text() makes of `described`
/// @throws CopyFailure, occupied when a file of that name is no description of the recording
void write_side_file(Share& share, const Naming& naming, const SideFile& described,
                     const std::string& text);

}  // namespace services
