// Reads the lines in which the SMB client tool lists a server's shares.
#include "backup/share_lines.h"

#include <algorithm>
#include <string_view>

#include "platform/recorder_log.h"

namespace {

// Shares of the recorder itself: whole names, and the beginning of others.
constexpr std::string_view PLATFORM_SHARES[] = {"HaldenAppData", "OstraAppData", "OstraAutoSnap",
                                                "VeskAutoSnap", "OstraDB"};
constexpr std::string_view PLATFORM_PREFIX = "OstraSpace_";

bool belongs_to_platform(std::string_view name) {
    return name.starts_with(PLATFORM_PREFIX) ||
           std::find(std::begin(PLATFORM_SHARES), std::end(PLATFORM_SHARES), name) !=
               std::end(PLATFORM_SHARES);
}

/// Reads up to a line end, or as much as a piece holds.
/// @return false at the end of the output
bool read_piece(std::FILE* output, std::string& piece) {
    piece.clear();
    while (piece.size() < SHARE_LINE_PIECE && !piece.ends_with('\n')) {
        const int byte = std::getc(output);
        if (byte == EOF) break;
        piece += static_cast<char>(byte);
    }
    return !piece.empty();
}

/// Keeps the name in a line such as "Disk|public|comment".
void keep_share(std::string_view line, Listing& listing) {
    constexpr std::string_view KIND = "Disk";
    if (!line.starts_with(KIND)) return;
    const std::string_view rest = line.substr(std::min(line.size(), KIND.size() + 1));
    const std::string shareName(rest.substr(0, rest.find('|')));
    const std::string_view behind = rest.substr(std::min(rest.size(), shareName.size() + 1));
    if (belongs_to_platform(shareName)) {
        DEBUG_NOTE("will SKIP shareName=[%s]\n", shareName.c_str());
        return;
    }
    listing.share_name_list.push_back(shareName);
    listing.comments.emplace_back(behind.substr(0, behind.find('\n')));
    DEBUG_NOTE(">>>> get shareName=[%s]\n", shareName.c_str());
}

bool is_full(const Listing& listing) {
    return listing.share_name_list.size() >= MAX_SHARES || listing.error.size() >= MAX_SHARE_ERROR;
}

}  // namespace

Listing read_share_lines(std::FILE* output, int exit_status) {
    Listing listing;
    std::string piece;
    bool begins_line = true;
    std::size_t read = 0;
    while (read < MAX_SHARE_OUTPUT && !is_full(listing) && read_piece(output, piece)) {
        read += piece.size();
        // Texts end at a NUL, which the tool never prints.
        const char* buf = piece.c_str();
        DEBUG_NOTE("get buf=[%s]\n", buf);
        if (exit_status != 0)
            listing.error += buf + std::string(", ");
        else if (begins_line)
            keep_share(buf, listing);
        begins_line = piece.ends_with('\n');
    }
    return listing;
}
