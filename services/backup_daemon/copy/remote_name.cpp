// Names on the share: where a task's copies go, and what an SMB server takes as a name.
#include "services/backup_daemon/copy/remote_name.h"

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

/// The next segment of a path in either spelling; takes it off the path.
std::string_view next_segment(std::string_view& path) {
    const auto begin = std::min(path.find_first_not_of("/\\"), path.size());
    path.remove_prefix(begin);
    const auto end = std::min(path.find_first_of("/\\"), path.size());
    const std::string_view segment = path.substr(0, end);
    path.remove_prefix(end);
    return segment;
}

}  // namespace

std::string safe_name(std::string_view name) {
    std::string safe = standalone::valid_utf8(name);
    std::ranges::replace_if(safe, is_forbidden, '_');
    cut(safe);
    if (safe.empty()) return "_";
    if (safe.back() == '.' || safe.back() == ' ') safe.back() = '_';
    if (is_device(safe)) safe.insert(std::min(safe.find('.'), safe.size()), "_");
    return safe;
}

std::string Destination::key() const {
    return "//" + server + ":" + std::to_string(port) + "/" + join_path(share, folder);
}

Destination destination_of(const TDataBackupConfig& task) {
    std::string_view path = task.destPath;
    Destination destination{task.serverIP, task.port, std::string(next_segment(path)), ""};
    for (auto segment = next_segment(path); !segment.empty(); segment = next_segment(path))
        destination.folder = join_path(destination.folder, safe_name(segment));
    return destination;
}

std::string join_path(const std::string& one, const std::string& other) {
    return one.empty() || other.empty() ? one + other : one + "/" + other;
}

std::string folder_of(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

}  // namespace services
