// A remote share as the copying sees it; the body is SMB, and memory in tests.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace services {

/// A file on a share, as the server tells of it.
struct FileState {
    long long size = 0;         ///< bytes, never negative
    long long modified_ns = 0;  ///< last write, nanoseconds since the epoch

    bool operator==(const FileState&) const = default;
};

/// Whether two times that a server told are one: file systems round, the roughest to two seconds.
inline bool same_time(long long one_ns, long long other_ns) {
    constexpr long long ROUGHEST_NS = 2'000'000'000;
    long long apart = 0;
    return !__builtin_sub_overflow(one_ns, other_ns, &apart) && std::llabs(apart) <= ROUGHEST_NS;
}

/// Room on a share, for the user who is logged in.
struct ShareRoom {
    long long free = 0;   ///< bytes
    long long total = 0;  ///< bytes
};

/// An open file on a share. Every call may throw CopyFailure.
class ShareFile {
public:
    virtual ~ShareFile() = default;
    /// Writes all of it at `offset`.
    virtual void write(long long offset, const char* data, std::size_t size) = 0;
    /// @return bytes read, fewer than `size` at the file's end only
    virtual std::size_t read(long long offset, char* data, std::size_t size) = 0;
    virtual void truncate(long long size) = 0;
    /// Has the server take everything; what it refuses is thrown here. The destructor just lets go.
    virtual void close() = 0;
};

/// Paths are relative to the share, segments joined by "/". Every call may throw CopyFailure.
class Share {
public:
    enum class Open {
        read,
        write,   ///< and read; made when it does not exist, keeps its content
        create,  ///< and read; occupied when there is anything of that name
    };

    virtual ~Share() = default;
    /// Makes the connection. Once, before anything else.
    /// @return what a request takes that moves nothing, or a little more
    virtual std::chrono::nanoseconds connect() = 0;
    /// Those of the wanted files (no folders) that a folder has; none when there is no such folder.
    virtual std::map<std::string, FileState> list(const std::string& folder,
                                                  const std::set<std::string>& wanted) = 0;
    /// Looks at a file; nothing when there is none.
    virtual std::optional<FileState> look(const std::string& path) = 0;
    /// Room that is left for files; nothing when the server does not tell.
    virtual std::optional<ShareRoom> room() = 0;
    /// Makes a folder and those above it; it may exist.
    virtual void make_folders(const std::string& path) = 0;
    /// Opens a file.
    virtual std::unique_ptr<ShareFile> open(const std::string& path, Open mode) = 0;
    /// Gives a file its new name; a file of that name is replaced.
    virtual void rename(const std::string& from, const std::string& to) = 0;
    /// Gives a folder that is not empty its new name.
    /// @throws CopyFailure occupied when there is anything of that name; nothing has changed then
    virtual void rename_folder(const std::string& from, const std::string& to) = 0;
    /// Makes a new file of the first `size` bytes of another one; the server copies them, as far as
    /// it can. Occupied when there is anything of the new name. What has been made when it fails
    /// stays.
    /// @param alive called every now and then meanwhile
    virtual void copy_beginning(const std::string& from, const std::string& to, long long size,
                                const std::function<void()>& alive) = 0;
    /// Sets a file's time of last write, as finely as the server has it.
    virtual void set_modified(const std::string& path, long long modified_ns) = 0;
    /// Deletes a file; there need not be one.
    virtual void remove(const std::string& path) = 0;
    /// Deletes a folder if it is empty.
    virtual void remove_folder(const std::string& path) = 0;
    /// Waits for as long as others may take between two requests that belong together.
    virtual void wait_for_others() = 0;
};

}  // namespace services
