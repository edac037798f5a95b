// Which folder each camera's copies have in a destination: chosen once, and no other camera's.
#include "services/backup_daemon/run/camera_folders.h"

#include <set>

#include "platform/standalone/store/utf8.h"
#include "services/backup_daemon/copy/share_path.h"

namespace services {
namespace {

// So much of a camera's guid tells it from another one of its name.
constexpr std::size_t LONGEST_ENDING = 60;

/// The folders of a destination, by what tells them apart.
class Folders {
public:
    Folders(const CameraFolders& told, DestinationMemory& memory)
        : told_(told), memory_(memory), recorded_(memory.camera_folders()) {
        for (const auto& [guid, folder] : recorded_) cameras_.insert(folded(folder));
        for (const std::string& folder : memory.folders_of_copies()) others_.insert(folded(folder));
        for (const auto& [guid, folder] : told) others_.insert(folded(folder));
    }

    std::string of(const std::string& guid, const std::string& wish) {
        const auto recorded = recorded_.find(guid);
        if (recorded != recorded_.end()) return recorded->second;
        std::string folder = choose(guid, wish);
        memory_.add_camera_folder(guid, folder, folded(folder));
        cameras_.insert(folded(folder));
        recorded_.emplace(guid, folder);
        return folder;
    }

private:
    std::string choose(const std::string& guid, const std::string& wish) {
        const auto told = told_.find(guid);
        if (told != told_.end() && !cameras_.contains(folded(told->second))) return told->second;
        const std::string name = is_reserved(wish) ? safe_name("_" + wish) : wish;
        std::string folder = name;
        for (int attempt = 1; !is_free(folder); ++attempt) folder = longer(name, guid, attempt);
        return folder;
    }

    bool is_free(const std::string& folder) const {
        const std::string name = folded(folder);
        return !cameras_.contains(name) && !others_.contains(name) && !is_reserved(folder);
    }

    /// Room for what is behind the name is made in the name.
    static std::string longer(const std::string& name, const std::string& guid, int attempt) {
        std::string ending = " " + safe_name(standalone::cut_utf8(guid, LONGEST_ENDING));
        if (attempt > 1) ending += " " + std::to_string(attempt);
        const auto beginning = standalone::cut_utf8(name, LONGEST_NAME - ending.size());
        return safe_name(std::string(beginning) + ending);
    }

    const CameraFolders& told_;
    DestinationMemory& memory_;
    CameraFolders recorded_;
    std::set<std::string> cameras_;  ///< of cameras that are recorded
    std::set<std::string> others_;   ///< that a camera may have
};

}  // namespace

void give_folders(std::vector<SelectedChannel>& channels, const CameraFolders& told,
                  DestinationMemory& memory) {
    Folders folders(told, memory);
    for (SelectedChannel& channel : channels)
        channel.folder = folders.of(channel.guid, channel.folder);
}

CameraFolders folders_to_tell(CameraFolders told, DestinationMemory& memory) {
    CameraFolders folders = memory.camera_folders();
    folders.merge(told);
    return folders;
}

}  // namespace services
