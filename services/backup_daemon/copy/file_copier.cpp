// Copies one file to a share: goes on where an earlier attempt stopped, checks, then names it.
#include "services/backup_daemon/copy/file_copier.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "services/backup_daemon/copy/compare.h"
#include "services/backup_daemon/copy/final_name.h"
#include "services/backup_daemon/copy/resume.h"
#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/copy/transfer.h"

namespace services {
namespace {

using Kind = Standing::Kind;

// So much of a file's beginning is read back at its end, too: a server that cannot reckon with
// offsets as large as the file's has written there what belongs further on.
constexpr long long READ_AGAIN = 64LL * 1024;

// How often the target may turn out to be another one than it was a moment ago.
constexpr int NAMING_ATTEMPTS = 3;

// How often a name may be refused for the moment.
constexpr int LOOKS = 4;
constexpr std::chrono::milliseconds LOOK_PAUSE(50);

/// While somebody else takes a name, his claim of it is being deleted: for moments the server
/// refuses whatever is asked of the name.
template <typename Action>
auto when_settled(Action action) {
    for (int look = 1;; ++look) {
        try {
            return action();
        } catch (const CopyFailure& failure) {
            const bool may_pass =
                failure.kind == FailureKind::denied || failure.kind == FailureKind::other;
            if (!may_pass || look == LOOKS) throw;
        }
        std::this_thread::sleep_for(LOOK_PAUSE);
    }
}

CopyFailure occupied_target(const CopyJob& job) {
    const char* const why =
        job.recorded ? ": the copy there was changed by somebody else, and stays as it is"
                     : ": another file, not of this recorder, has this name";
    return {FailureKind::occupied, job.target + why};
}

/// What is to be read back of a file when its last chunk has been, or when nothing was sent.
long long rest_to_check(const Beginning& begin, long long size) {
    if (begin.size == size) return size;
    const bool has_one_chunk = size <= static_cast<long long>(CHUNK);
    return has_one_chunk ? begin.unread : std::max(begin.unread, READ_AGAIN);
}

/// Whether the server shall make the beginning of the new copy from the one that stands there.
bool has_grown(const CopyJob& job, const Standing& standing, const SourceFile& source) {
    return standing.kind == Kind::recorded && !job.recorded->sha256.empty() &&
           !job.recorded->doubted && job.offset == 0 &&
           job.recorded->size >= static_cast<long long>(CHUNK) &&
           job.recorded->size < source.size();
}

}  // namespace

FileCopier::FileCopier(Share& share, CopyWatcher watcher, Pace pace)
    : share_(share), watcher_(std::move(watcher)), pace_(std::move(pace)), kept_time_(share) {}

WholeCopy FileCopier::copy(const CopyJob& job, const SourceFile& source) {
    CopyState state{.source = source,
                    .buffers = buffers_,
                    .watcher = watcher_,
                    .pace = pace_,
                    .hash = ContentHash(job.check || job.side_file)};
    const Standing standing =
        job.fresh ? Standing{}
                  : when_settled([&] { return what_stands_there(share_, job, state); });
    if (standing.kind == Kind::foreign) throw occupied_target(job);
    // What an attempt before this one has begun: somebody else was faster, or the claim of a
    // recording of no bytes was cut before its text.
    if (standing.kind == Kind::equal) share_.remove(job.temporary);
    WholeCopy whole = standing.kind == Kind::equal
                          ? WholeCopy{state.hash.hex(), standing.seen.modified_ns}
                          : send_and_name(job, standing, state);
    if (job.side_file)
        write_side_file(
            share_, {side_file_path(job.temporary), side_file_path(job.target), job.claim},
            *job.side_file, side_file_text(*job.side_file, source.size(), whole.sha256));
    return whole;
}

WholeCopy FileCopier::send_and_name(const CopyJob& job, const Standing& standing,
                                    CopyState& state) {
    make_folder(folder_of(job.target));
    send_until_right(job, has_grown(job, standing, state.source), state);
    WholeCopy whole{state.hash.hex(), 0};
    whole.share_modified_ns = kept_time_.keep(job.temporary, state.source.modified_ns());
    const Standing named = take_name(job, standing, state);
    if (named.kind == Kind::equal) whole.share_modified_ns = named.seen.modified_ns;
    return whole;
}

void FileCopier::make_folder(const std::string& folder) {
    if (folder == made_folder_) return;
    share_.make_folders(folder);
    made_folder_ = folder;
}

/// A temporary file that is not right goes: none of its bytes can be trusted, nor those of a copy
/// that some of them came from.
void FileCopier::send_until_right(const CopyJob& job, bool from_copy, CopyState& state) {
    for (int attempt = 0; attempt < COPY_ATTEMPTS; ++attempt) {
        if (send(job, from_copy && attempt == 0, state)) return;
        share_.remove(job.temporary);
        watcher_.checkpoint(0, "");
    }
    throw CopyFailure(FailureKind::mismatch,
                      job.target + ": the share gives back other bytes than it got");
}

/// Writes the temporary file, or what it lacks. It is read back through the same opening: the
/// library keeps nothing of what it has written. What a checkpoint vouches for is read at the end:
/// a line that breaks again and again must not be busy with reading what it has sent.
/// @return whether it is right, as far as it is to be checked
bool FileCopier::send(const CopyJob& job, bool from_copy, CopyState& state) {
    const bool begun = from_copy && begin_from_copy(job, state);
    const auto [file, there] = open_temporary(job);
    const long long copied = begun ? job.recorded->size : 0;
    const Beginning begin =
        begun ? Beginning{copied, copied} : resume_point(*file, there, job, state);
    const long long size = state.source.size();
    if (there > size) file->truncate(size);
    watcher_.begins(begin.size);
    const bool is_right = write_from(*file, begin.size, job.check, state) &&
                          (!job.check || reads_back(*file, rest_to_check(begin, size), state));
    file->close();
    return is_right;
}

/// A recording that has grown since it was copied: only what is new goes over the line.
/// @return false: everything is to be sent
bool FileCopier::begin_from_copy(const CopyJob& job, CopyState& state) {
    const RecordedCopy& copy = *job.recorded;
    if (!begins_with(copy.sha256, copy.size, state)) return false;
    try {
        share_.copy_beginning(job.target, job.temporary, copy.size, watcher_.alive);
    } catch (const CopyFailure& failure) {
        if (ends_connection(failure.kind)) throw;
        if (failure.kind != FailureKind::occupied) share_.remove(job.temporary);
        return false;
    }
    watcher_.checkpoint(copy.size, copy.sha256);
    return true;
}

/// Of a fresh copy there should be no temporary file; one whose record was lost is gone on with.
FileCopier::Unfinished FileCopier::open_temporary(const CopyJob& job) {
    const auto open = [&](Share::Open mode) {
        return pace_.ask([&] { return share_.open(job.temporary, mode); });
    };
    try {
        if (job.fresh) return {open(Share::Open::create), 0};
    } catch (const CopyFailure& failure) {
        if (failure.kind != FailureKind::occupied) throw;
    }
    const long long there = share_.look(job.temporary).value_or(FileState{}).size;
    return {open(Share::Open::write), there};
}

/// What stands there may have changed since it was looked at, which was before the file was sent.
/// @return what stood there at last; the temporary file has its name if that is not equal
Standing FileCopier::take_name(const CopyJob& job, Standing standing, CopyState& state) {
    const Naming naming{job.temporary, job.target, job.claim};
    for (int attempt = 0; attempt < NAMING_ATTEMPTS; ++attempt) {
        std::function<bool()> has_zeros;
        if (standing.kind == Kind::remnant)
            has_zeros = [&] { return what_stands_there(share_, job, state).kind == Kind::remnant; };
        const bool taken = when_settled([&] {
            return standing.kind == Kind::nothing
                       ? take_free_name(share_, naming)
                       : take_over_name(share_, naming, standing.seen, has_zeros);
        });
        if (taken) return standing;
        standing = when_settled([&] { return what_stands_there(share_, job, state); });
        if (standing.kind == Kind::foreign || standing.kind == Kind::equal) break;
    }
    share_.remove(job.temporary);
    if (standing.kind != Kind::equal) throw occupied_target(job);
    return standing;
}

}  // namespace services
