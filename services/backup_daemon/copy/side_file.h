// The description that format "ostra" puts beside a copy.
#pragma once

#include <string>

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

/// Puts a description beside the copy `target`, in the place of one that is there. It gets its name
/// when it is whole; until then it lies beside `temporary`.
/// @throws CopyFailure
void write_side_file(Share& share, const std::string& target, const std::string& temporary,
                     const std::string& text);

}  // namespace services
