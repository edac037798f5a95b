// A share in memory that notes every call and fails on demand, for tests of the copying.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/share.h"

/// When a call fails: before it does anything, after half of a write, or when it has done all and
/// only its answer is lost.
enum class Break { before, halfway, after };

/// One call that is to fail.
struct PlannedFailure {
    std::size_t call = 0;  ///< its number since the server was made
    Break when = Break::before;
    services::FailureKind kind = services::FailureKind::lost;
};

/// A file that is replaced is deleted first, as the library does it: halfway, there is none.
/// The share's content outlives the connections to it, as on a server. Like one, it opens no file
/// in a folder that is not there, and renames no file that is open.
struct MemoryServer {
    std::chrono::nanoseconds round_trip{};  ///< as connect() tells it
    std::map<std::string, std::string> files;
    std::map<std::string, long long> modified_ns;  ///< of files whose time was set; others have 0
    std::set<std::string> folders;
    long long room = 1LL << 40;  ///< the largest file that there is room for
    long long written = 0;       ///< bytes, in all

    /// Every call as text: "look P", "open write P", "write P OFFSET SIZE", "rename P -> Q", ...
    std::vector<std::string> calls;
    std::optional<PlannedFailure> failure;

    /// Called before a call takes effect, with its text; may throw.
    std::function<void(const std::string& call)> before_call = [](const std::string&) {};
    /// What a write really stores, and what a read really gives. A call's text tells which it is.
    using Spoil = std::function<void(const std::string& call, std::string& bytes)>;
    Spoil spoil_write = [](const std::string&, std::string&) {};
    Spoil spoil_read = [](const std::string&, std::string&) {};

    std::multiset<std::string> open_files;

    /// The file as a server tells of it; nothing when there is none.
    std::optional<services::FileState> state(const std::string& path) const;

    /// Puts a file there, with its folder.
    void put(const std::string& path, const std::string& content);

    /// The calls whose text begins so.
    std::vector<std::string> calls_of(const std::string& beginning) const;
};

/// One connection to the server.
class MemoryShare : public services::Share {
public:
    explicit MemoryShare(MemoryServer& server) : server_(server) {}

    std::chrono::nanoseconds connect() override;
    std::map<std::string, services::FileState> list(const std::string& folder,
                                                    const std::set<std::string>& wanted) override;
    std::optional<services::FileState> look(const std::string& path) override;
    std::optional<services::ShareRoom> room() override;
    void make_folders(const std::string& path) override;
    std::unique_ptr<services::ShareFile> open(const std::string& path, Open mode) override;
    void rename(const std::string& from, const std::string& to) override;
    void rename_folder(const std::string& from, const std::string& to) override;
    void copy_beginning(const std::string& from, const std::string& to, long long size,
                        const std::function<void()>& alive) override;
    void set_modified(const std::string& path, long long modified_ns) override;
    void remove(const std::string& path) override;
    void remove_folder(const std::string& path) override;
    void wait_for_others() override;

private:
    MemoryServer& server_;
};
