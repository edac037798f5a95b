// Which of a channel's days have an empty folder: the cheapest look at a day that there is.
#include "platform/standalone/store/empty_days.h"

#include <dirent.h>
#include <fcntl.h>

#include <string_view>

namespace standalone {
namespace {

// Two records: "." and "..". What does not fit comes with the next call.
constexpr std::size_t ROOM = 1024;

/// Reads the folder to its end, without the memory and the calls that readdir() would take first.
bool has_nothing(int folder) {
    alignas(dirent64) char names[ROOM];
    ssize_t size = 0;
    while ((size = getdents64(folder, names, sizeof names)) > 0)
        for (ssize_t at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(names + at);
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..") return false;
            at += entry->d_reclen;
        }
    return size == 0;
}

}  // namespace

EmptyDays::EmptyDays(const std::string& channel)
    : folder_(open(channel.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!folder_ || fstat(folder_.get(), &found_) != 0) {
        found_ = {};
        return;
    }
    keeps_change_times_ = keeps_change_times(folder_.get());
}

std::optional<FolderStamp> EmptyDays::look(const std::string& day, const Moment& looked_at) const {
    if (found_.st_ino == 0) return {};
    const FileHandle folder(
        openat(folder_.get(), day.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat found {};
    if (!folder || fstat(folder.get(), &found) != 0 || !has_nothing(folder.get())) return {};
    const bool is_stamped = keeps_change_times_ && found.st_dev == found_.st_dev;
    return is_stamped ? settled_stamp(found, looked_at) : FolderStamp();
}

}  // namespace standalone
