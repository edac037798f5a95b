// Removes files from a share that still are what they were, and leaves all others where they lie.
#include "services/backup_daemon/lane/file_removal.h"

#include <map>
#include <set>
#include <string>

#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/copy/side_file.h"

namespace services {
namespace {

// Far more than a description has.
constexpr long long LONGEST_DESCRIPTION = 64LL * 1024;

using Found = std::map<std::string, FileState>;  // by path

std::string name_of(const std::string& path) {
    const std::string folder = folder_of(path);
    return path.substr(folder.empty() ? 0 : folder.size() + 1);
}

/// What there is of the files that have to be looked at, and of their descriptions.
Found look_at(Share& share, const std::vector<DoomedFile>& files,
              const std::function<void()>& alive) {
    std::map<std::string, std::set<std::string>> wanted;
    for (const DoomedFile& file : files) {
        if (file.size < 0) continue;
        auto& names = wanted[folder_of(file.path)];
        names.insert(name_of(file.path));
        if (!file.description_end.empty()) names.insert(side_file_path(name_of(file.path)));
    }
    Found found;
    for (const auto& [folder, names] : wanted) {
        for (const auto& [name, state] : share.list(folder, names))
            found.emplace(join_path(folder, name), state);
        alive();
    }
    return found;
}

bool is_it(const DoomedFile& file, const FileState& there) {
    if (there.size != file.size) return false;
    return !file.modified_ns || same_time(there.modified_ns, *file.modified_ns);
}

bool is_description(Share& share, const std::string& path, long long size, const std::string& end) {
    if (size > LONGEST_DESCRIPTION) return false;
    std::string text(static_cast<std::size_t>(size), 0);
    const auto file = share.open(path, Share::Open::read);
    text.resize(file->read(0, text.data(), text.size()));
    return text.ends_with(end);
}

/// A file that is there goes, if it is the one that is meant.
Fate remove_copy(Share& share, const Found& found, const DoomedFile& file) {
    const auto there = found.find(file.path);
    const bool is_there = file.size < 0 || there != found.end();
    if (!is_there) return Fate::missing;
    if (file.size >= 0 && !is_it(file, there->second)) return Fate::stayed;
    share.remove(file.path);
    return Fate::gone;
}

/// The same for its description.
bool description_stays(Share& share, const Found& found, const DoomedFile& file) {
    const auto there = found.find(side_file_path(file.path));
    if (file.description_end.empty() || there == found.end()) return false;
    if (!is_description(share, there->first, there->second.size, file.description_end)) return true;
    share.remove(there->first);
    return false;
}

Fate remove_file(Share& share, const Found& found, const DoomedFile& file) {
    const Fate fate = remove_copy(share, found, file);
    if (fate == Fate::stayed) return fate;
    return description_stays(share, found, file) ? Fate::description_stayed : fate;
}

}  // namespace

std::vector<Fate> remove_files(Share& share, const RemoveFiles& order,
                               const std::function<void()>& alive) {
    const auto there = look_at(share, order.files, alive);
    std::vector<Fate> fates;
    for (const DoomedFile& file : order.files) {
        fates.push_back(remove_file(share, there, file));
        alive();
    }
    for (const std::string& folder : order.folders) share.remove_folder(folder);
    return fates;
}

}  // namespace services
