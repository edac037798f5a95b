// Small texts on a share: read with a bound, written as a whole, put into a folder that is claimed.
#include "services/backup_daemon/copy/share_text.h"

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/share_path.h"

namespace services {
namespace {

std::string read_all(ShareFile& file) {
    std::string text(LONGEST_TEXT + 1, '\0');
    text.resize(file.read(0, text.data(), text.size()));
    return text.size() > LONGEST_TEXT ? "" : text;
}

/// What cannot be removed stays, and is used by the next claim.
void tidy_up(Share& share, const std::string& folder, const std::string& file) {
    try {
        share.remove(file);
        share.remove_folder(folder);
    } catch (const CopyFailure&) {
    }
}

}  // namespace

std::optional<std::string> read_text(Share& share, const std::string& path) {
    if (!share.look(path)) return {};
    return read_all(*share.open(path, Share::Open::read));
}

void put_text(Share& share, const std::string& path, const std::string& text) {
    const auto file = share.open(path, Share::Open::write);
    file->truncate(0);
    file->write(0, text.data(), text.size());
    file->close();
}

void write_text(Share& share, const std::string& path, const std::string& temporary,
                const std::string& text) {
    put_text(share, temporary, text);
    share.rename(temporary, path);
}

void claim_folder(Share& share, const FolderClaim& claim) {
    const std::string file = join_path(claim.temporary, claim.file);
    try {
        share.make_folders(claim.temporary);
        put_text(share, file, claim.text);
        share.rename_folder(claim.temporary, claim.folder);
    } catch (const CopyFailure& failure) {
        if (!ends_connection(failure.kind)) tidy_up(share, claim.temporary, file);
        throw;
    }
}

}  // namespace services
