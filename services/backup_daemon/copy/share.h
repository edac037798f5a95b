// A remote share as the copying sees it; the body is SMB, and memory in tests.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace services {

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
    enum class Open { read, write };

    virtual ~Share() = default;
    /// Makes the connection. Once, before anything else.
    virtual void connect() = 0;
    /// Those of the wanted files (no folders) that a folder has, with their sizes, which are never
    /// negative; none when there is no such folder.
    virtual std::map<std::string, long long> list(const std::string& folder,
                                                  const std::set<std::string>& wanted) = 0;
    /// Size of a file; nothing when there is none.
    virtual std::optional<long long> size(const std::string& path) = 0;
    /// Makes a folder and those above it; it may exist.
    virtual void make_folders(const std::string& path) = 0;
    /// Opens a file; for writing it is made when it does not exist, and keeps its content.
    virtual std::unique_ptr<ShareFile> open(const std::string& path, Open mode) = 0;
    /// Gives a file its new name; a file of that name is replaced.
    virtual void rename(const std::string& from, const std::string& to) = 0;
    /// Deletes a file; there need not be one.
    virtual void remove(const std::string& path) = 0;
    /// Deletes a folder if it is empty.
    virtual void remove_folder(const std::string& path) = 0;
};

}  // namespace services
