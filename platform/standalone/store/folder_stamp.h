// What tells whether the names in a folder are still those that were read.
#pragma once

#include <sys/stat.h>

#include <string>

namespace standalone {

struct Folder;

/// The clock, when somebody looks at folders.
struct Moment {
    long long now_ns = 0;   ///< since the epoch
    long long boot_ns = 0;  ///< when the machine was started, by the clock as it is set now

    static Moment now();
};

/// Two equal stamps of one name: the same folder with the same names in it, and as readable as it
/// was. Entries that are made, removed, renamed or replaced give their folder another change time,
/// and so do its mode and owner. Its modification time anybody can set back.
struct FolderStamp {
    long long device = 0;
    long long inode = 0;  ///< 0: a stamp that tells nothing and equals none
    long long modified_ns = 0;
    long long changed_ns = 0;
    long long names = 0;  ///< links to the folder: on most file systems 2 and one a folder in it
    long long size = 0;

    bool operator==(const FolderStamp&) const = default;
};

/// The stamp of an open folder, to be taken before it is read. One that tells nothing when a later
/// change might leave it as it is: on file systems of which it is not known that each change gets
/// its time from this machine's clock (of the network, in user space), and of a folder that has
/// changed in the last two seconds, because another change may get the same time.
FolderStamp stamp_of(const Folder& folder, const Moment& looked_at);

// The two halves of it, for whoever looks at many folders of one file system.

/// Whether a folder, open as a descriptor, lies on a file system of which it is known that each
/// change gets its time from this machine's clock.
bool keeps_change_times(int folder);

/// The stamp of a folder on such a file system, by what fstat() has found before it was read.
FolderStamp settled_stamp(const struct stat& found, const Moment& looked_at);

/// Whether the folder of that name, which may be a link when `follow` says so, has that stamp.
bool has_stamp(const std::string& path, const FolderStamp& stamp, bool follow = false);

/// Whether the folder of that name, not a link, in one that is open as a descriptor has that stamp.
bool has_stamp(int parent, const std::string& name, const FolderStamp& stamp);

/// Whether the clock has run straight on from one moment to the other: it may be set by a quarter
/// of a second at most, and the machine has not been started since.
bool has_run_on(const Moment& from, const Moment& to);

}  // namespace standalone
