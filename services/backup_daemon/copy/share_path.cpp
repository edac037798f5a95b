// Names and paths on a share: what an SMB server takes as a name, and how names are joined.
#include "services/backup_daemon/copy/share_path.h"

#include <algorithm>
#include <cctype>

#include "platform/standalone/store/utf8.h"

namespace services {
namespace {

constexpr std::size_t LONGEST_NAME = 200;

bool is_forbidden(char byte) {
    return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f' ||
           std::string_view("\\/:*?\"<>|").find(byte) != std::string_view::npos;
}

/// Names that mean devices on some servers, also with an extension behind them.
bool is_device(std::string_view name) {
    std::string stem(name.substr(0, name.find('.')));
    while (stem.ends_with(' ')) stem.pop_back();
    std::ranges::transform(stem, stem.begin(), [](unsigned char c) { return std::toupper(c); });
    if (stem == "CON" || stem == "PRN" || stem == "AUX" || stem == "NUL") return true;
    return stem.size() == 4 && (stem.starts_with("COM") || stem.starts_with("LPT")) &&
           stem[3] >= '1' && stem[3] <= '9';
}

/// Cut to the longest length, not inside a character.
void cut(std::string& name) {
    if (name.size() <= LONGEST_NAME) return;
    std::size_t end = LONGEST_NAME;
    while ((static_cast<unsigned char>(name[end]) & 0xc0) == 0x80) --end;
    name.resize(end);
}

void end_well(std::string& name) {
    cut(name);
    if (name.back() == '.' || name.back() == ' ') name.back() = '_';
}

}  // namespace

std::string safe_name(std::string_view name) {
    std::string safe = standalone::valid_utf8(name);
    std::ranges::replace_if(safe, is_forbidden, '_');
    if (safe.empty()) return "_";
    end_well(safe);
    if (!is_device(safe)) return safe;
    safe.insert(std::min(safe.find('.'), safe.size()), "_");
    end_well(safe);  // the longest ones have become longer
    return safe;
}

std::string folded(std::string path) {
    std::ranges::transform(path, path.begin(), [](unsigned char c) { return std::tolower(c); });
    return path;
}

std::string join_path(const std::string& one, const std::string& other) {
    return one.empty() || other.empty() ? one + other : one + "/" + other;
}

std::string folder_of(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

}  // namespace services
