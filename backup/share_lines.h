// Reads the lines in which the SMB client tool lists a server's shares.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

/// Bytes of a line that are read at once; a longer line arrives in pieces of so many.
inline constexpr std::size_t SHARE_LINE_PIECE = 1023;

/// Bytes of the tool's output that are read. What a server lists beyond is left out.
inline constexpr std::size_t MAX_SHARE_OUTPUT = std::size_t{4} * 1024 * 1024;

/// Names that are kept.
inline constexpr std::size_t MAX_SHARES = 10000;

/// Bytes of the error text, give or take a piece.
inline constexpr std::size_t MAX_SHARE_ERROR = std::size_t{64} * 1024;

/// What the tool said.
struct Listing {
    std::vector<std::string> share_name_list;  ///< in the tool's order, without the recorder's own
    std::vector<std::string> comments;         ///< one for each name; "" without one
    std::string error;  ///< the pieces of its lines, each followed by ", "; of a tool that failed
};

/// Reads the tool's output (smbclient(1), option -g): lines such as "Disk|public|comment", in which
/// the tool prints names and comments just as the server gives them. A line that is longer than a
/// piece counts by its first piece. A comment with a line end in it reads as if the server had
/// listed what follows, for nothing in the output tells the two apart: names are a server's claims.
/// @param exit_status of the tool; the lines are error text when it is not 0
Listing read_share_lines(std::FILE* output, int exit_status);
