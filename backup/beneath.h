// Reaches what lies below a folder, and nothing outside it, whatever a server offers there.
#pragma once

#include <string>

#include "backup/descriptor.h"
#include "backup/file_ptr.h"

/// A folder, and the paths below it. A path that leads out of the folder, through a symbolic link
/// or into another file system leads nowhere; ".." within the folder is as good as any name.
class Beneath {
public:
    /// @param folder a folder that is no symbolic link; in any other nothing is found or made
    explicit Beneath(const char* folder);

    /// @return whether there is an entry of any kind, a symbolic link included
    bool has(const std::string& path) const;

    /// Makes the last folder of a path, as mkdir(2) with mode 0777.
    /// @return 0 or -1
    int make_folder(const std::string& path) const;

    /// Opens a regular file for writing and reading: made when it is missing, else emptied.
    /// @return null when it cannot be opened or is no regular file
    FilePtr create_file(const std::string& name) const;

    /// Removes a file.
    /// @param name of an entry of the folder itself
    void remove(const std::string& name) const;

private:
    Descriptor reach(const std::string& path, int flags, mode_t mode = 0) const;

    Descriptor folder_;
};
