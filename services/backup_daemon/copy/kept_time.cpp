// Gives copies the time of last write that their recordings have, as far as the server takes it.
#include "services/backup_daemon/copy/kept_time.h"

#include "services/backup_daemon/copy/copy_failure.h"

namespace services {

long long KeptTime::keep(const std::string& path, long long modified_ns) {
    if (server_ != Server::ignores) try_to_set(path, modified_ns);
    if (server_ == Server::takes) return modified_ns;
    const auto found = share_.look(path);
    if (!found) throw CopyFailure(FailureKind::other, path + " is not there any more");
    const bool taken = server_ == Server::unknown && same_time(found->modified_ns, modified_ns);
    server_ = taken ? Server::takes : Server::ignores;
    return found->modified_ns;
}

void KeptTime::try_to_set(const std::string& path, long long modified_ns) {
    try {
        share_.set_modified(path, modified_ns);
    } catch (const CopyFailure& failure) {
        if (ends_connection(failure.kind)) throw;
        server_ = Server::ignores;
    }
}

}  // namespace services
