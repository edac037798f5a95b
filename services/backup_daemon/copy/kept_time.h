// Gives copies the time of last write that their recordings have, as far as the server takes it.
#pragma once

#include "services/backup_daemon/copy/share.h"

namespace services {

/// For one connection, which it outlives not. A server that will not set times, or does not do it
/// though it says so, is no failure: its own time is as good for knowing the copy again.
class KeptTime {
public:
    explicit KeptTime(Share& share) : share_(share) {}

    /// Sets a file's time. What became of it is looked at for the first file only: that one tells
    /// what the server makes of all.
    /// @return the time that the file has on the share, as far as the server rounds it
    /// @throws CopyFailure
    long long keep(const std::string& path, long long modified_ns);

private:
    enum class Server { unknown, takes, ignores };

    void try_to_set(const std::string& path, long long modified_ns);

    Share& share_;
    Server server_ = Server::unknown;
};

}  // namespace services
