// Folders and files that come to be as a whole or not at all, and stay.
#pragma once

#include <string>
#include <string_view>

#include "platform/standalone/store/file_handle.h"

namespace recorderctl {

/// A new folder, mode 0700, for what is not ready yet: removed with everything in it by its end,
/// unless it has got its name.
class UnreadyFolder {
public:
    /// @throws Failure when it cannot be made, or is there already
    explicit UnreadyFolder(const std::string& path);
    ~UnreadyFolder();
    UnreadyFolder(const UnreadyFolder&) = delete;
    UnreadyFolder& operator=(const UnreadyFolder&) = delete;

    const std::string& path() const { return path_; }
    /// Gives it its name beside the one that it had. It is on disk when this returns.
    void become(const std::string& name);

private:
    std::string path_;
};

/// Makes a folder, mode 0700.
/// @throws Failure
void make_folder(const std::string& path);

/// Keeps others who call this for the folder out, as long as what it returns lives.
/// @throws Failure when somebody holds it
standalone::FileHandle hold_folder(const std::string& path);

/// Waits until a file, or the names in a folder, are on disk.
/// @throws Failure
void sync_to_disk(const std::string& path);

/// The moment as it stands in names: "2024-03-01T12-30-00Z". Names sort as their moments do.
std::string moment_for_names();

/// Whether a name has that form.
bool is_moment(std::string_view name);

}  // namespace recorderctl
