// Where a task's copies go: server, share and folder, read from the task's record.
#include "services/backup_daemon/run/destination.h"

#include <algorithm>
#include <string_view>

#include "services/backup_daemon/copy/share_path.h"

namespace services {
namespace {

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

std::string Destination::key() const {
    return "//" + server + ":" + std::to_string(port) + "/" + join_path(share, folder);
}

std::string Destination::share_key() const {
    return "//" + server + ":" + std::to_string(port) + "/" + share;
}

Destination destination_of(const TDataBackupConfig& task) {
    std::string_view path = task.destPath;
    Destination destination{.server = task.serverIP,
                            .port = task.port,
                            .share = std::string(next_segment(path)),
                            .folder = ""};
    for (auto segment = next_segment(path); !segment.empty(); segment = next_segment(path))
        destination.folder = join_path(destination.folder, safe_name(segment));
    return destination;
}

}  // namespace services
