// A share on an SMB2 or SMB3 server, through libsmbclient.
#pragma once

#include <memory>
#include <string>

#include "services/backup_daemon/copy/share.h"
#include "services/backup_daemon/copy/smb_login.h"

namespace services {

/// One share, one connection, made anew by making a new object. The library keeps its state in the
/// process and is not made for threads: one object in one process at a time.
class SmbShare : public Share {
public:
    /// A server that says nothing for so long is lost.
    static constexpr int TIMEOUT_MS = 20'000;

    explicit SmbShare(SmbLogin login);
    ~SmbShare() override;

    std::chrono::nanoseconds connect() override;
    std::map<std::string, FileState> list(const std::string& folder,
                                          const std::set<std::string>& wanted) override;
    std::optional<FileState> look(const std::string& path) override;
    std::optional<ShareRoom> room() override;
    void make_folders(const std::string& path) override;
    std::unique_ptr<ShareFile> open(const std::string& path, Open mode) override;
    void rename(const std::string& from, const std::string& to) override;
    void rename_folder(const std::string& from, const std::string& to) override;
    void copy_beginning(const std::string& from, const std::string& to, long long size,
                        const std::function<void()>& alive) override;
    void set_modified(const std::string& path, long long modified_ns) override;
    void remove(const std::string& path) override;
    void remove_folder(const std::string& path) override;
    void wait_for_others() override;

private:
    struct Context;
    std::chrono::nanoseconds measure_round_trip();
    std::chrono::nanoseconds look_for_nothing();
    bool make_folder(const std::string& path);
    std::string url(const std::string& path) const;

    SmbLogin login_;
    std::unique_ptr<Context> context_;
};

}  // namespace services
