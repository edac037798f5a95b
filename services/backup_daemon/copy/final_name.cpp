// The last step of a copy: its name, which is taken from nobody.
#include "services/backup_daemon/copy/final_name.h"

#include <memory>
#include <optional>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/remnant.h"

namespace services {
namespace {

/// A claim that had no room would stand on the share as an empty recording. Where it cannot be
/// removed either, the next run knows what is left of it.
void give_back(Share& share, const Naming& naming) {
    try {
        share.remove(naming.target);
    } catch (const CopyFailure&) {
        return;  // why the claim could not be written counts
    }
}

void write_claim(Share& share, const Naming& naming, std::unique_ptr<ShareFile> file) {
    try {
        file->write(0, naming.claim.data(), naming.claim.size());
        file->close();
    } catch (const CopyFailure& failure) {
        file.reset();
        if (failure.kind == FailureKind::full) give_back(share, naming);
        throw;
    }
}

bool claim(Share& share, const Naming& naming) {
    try {
        write_claim(share, naming, share.open(naming.target, Share::Open::create));
        return true;
    } catch (const CopyFailure& failure) {
        if (failure.kind != FailureKind::occupied) throw;
        return false;
    }
}

/// What the file holds; nothing when that is more than a claim, or less than its size says.
std::optional<std::string> short_content(ShareFile& file, long long size,
                                         const std::string& claim) {
    if (size > static_cast<long long>(claim.size())) return {};
    std::string found(static_cast<std::size_t>(size), '\0');
    if (file.read(0, found.data(), found.size()) != found.size()) return {};
    return found;
}

}  // namespace

bool take_free_name(Share& share, const Naming& naming) {
    if (!claim(share, naming)) return false;
    share.rename(naming.temporary, naming.target);
    return true;
}

bool take_over_name(Share& share, const Naming& naming, const FileState& seen,
                    const std::function<bool()>& has_zeros) {
    if (seen.size == 0 || has_zeros) share.wait_for_others();
    if (has_zeros && !has_zeros()) return false;
    if (share.look(naming.target) != seen) return false;
    share.rename(naming.temporary, naming.target);
    return true;
}

bool is_claim(ShareFile& file, long long size, const std::string& claim) {
    const auto found = short_content(file, size, claim);
    return found && claim.starts_with(*found);
}

bool is_claim_remnant(ShareFile& file, long long size, const std::string& claim) {
    const auto found = short_content(file, size, claim);
    return found && is_remnant(*found, claim);
}

}  // namespace services
