// Small texts on a share: read with a bound, written as a whole, put into a folder that is claimed.
#pragma once

#include <optional>
#include <string>

#include "services/backup_daemon/copy/share.h"

namespace services {

/// Bytes that are read of a text at most.
inline constexpr std::size_t LONGEST_TEXT = 48UL * 1024;

/// @return "" for a text that is longer than that; nothing for none
/// @throws CopyFailure denied: there is one, or may be, that must not be read
std::optional<std::string> read_text(Share& share, const std::string& path);

/// Writes a file of the text alone, over whatever it held. It may be seen, and stay, half written.
/// @throws CopyFailure
void put_text(Share& share, const std::string& path, const std::string& text);

/// Puts a text into a file, in the place of what it held. The file appears as a whole, from
/// `temporary` in the same folder.
/// @throws CopyFailure
void write_text(Share& share, const std::string& path, const std::string& temporary,
                const std::string& text);

/// A folder that somebody wants for himself, with one file in it.
struct FolderClaim {
    std::string folder;
    std::string temporary;  ///< where it is prepared, beside it; nobody else's
    std::string file;       ///< name
    std::string text;
};

/// Makes a folder with its file, both or neither, where there is nothing of its name. A server
/// gives a folder's name to exactly one of those who want it, since none of them is empty. What a
/// claim that was cut short has left at `temporary` is used.
/// @throws CopyFailure occupied: somebody has it. Nothing stays at `temporary` then, nor after any
///         other failure that leaves the connection standing
void claim_folder(Share& share, const FolderClaim& claim);

}  // namespace services
