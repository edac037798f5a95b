// Copies one file to a share: goes on where an earlier attempt stopped, checks, then names it.
#include "services/backup_daemon/copy/file_copier.h"

#include <utility>

#include "services/backup_daemon/copy/resume.h"
#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/copy/standing.h"
#include "services/backup_daemon/copy/transfer.h"

namespace services {

FileCopier::FileCopier(Share& share, CopyWatcher watcher)
    : share_(share), watcher_(std::move(watcher)) {}

std::string FileCopier::copy(const CopyJob& job, const SourceFile& source) {
    CopyState state{.source = source,
                    .buffers = buffers_,
                    .watcher = watcher_,
                    .hash = ContentHash(job.check || job.side_file)};
    const Standing standing = what_stands_there(share_, job, state);
    if (standing == Standing::foreign)
        throw CopyFailure(FailureKind::occupied,
                          job.target + ": another file, not of this recorder, has this name");
    if (standing != Standing::equal) {
        make_folder(folder_of(job.target));
        send_until_right(job, state);
        share_.rename(job.temporary, job.target);
    }
    std::string sha256 = state.hash.hex();
    if (job.side_file)
        write_side_file(share_, job.target, job.temporary,
                        side_file_text(*job.side_file, source.size(), sha256));
    return sha256;
}

void FileCopier::make_folder(const std::string& folder) {
    if (folder == made_folder_) return;
    share_.make_folders(folder);
    made_folder_ = folder;
}

/// A temporary file that is not right goes: none of its bytes can be trusted.
void FileCopier::send_until_right(const CopyJob& job, CopyState& state) {
    for (int attempt = 0; attempt < COPY_ATTEMPTS; ++attempt) {
        send(job, state);
        if (!job.check || is_right(job, state)) return;
        share_.remove(job.temporary);
        watcher_.checkpoint(0, "");
    }
    throw CopyFailure(FailureKind::mismatch,
                      job.target + ": the share gives back other bytes than it got");
}

/// Writes the temporary file, or what it lacks.
void FileCopier::send(const CopyJob& job, CopyState& state) {
    const long long there = share_.size(job.temporary).value_or(0);
    const auto file = share_.open(job.temporary, Share::Open::write);
    const long long begin = resume_point(*file, there, job, state);
    if (there > state.source.size()) file->truncate(state.source.size());
    watcher_.begins(begin);
    write_from(*file, begin, state);
    file->close();
}

bool FileCopier::is_right(const CopyJob& job, CopyState& state) {
    const auto file = share_.open(job.temporary, Share::Open::read);
    return reads_back(*file, state);
}

}  // namespace services
