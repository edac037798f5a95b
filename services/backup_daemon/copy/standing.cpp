// What has the target's name on the share before a file is copied.
#include "services/backup_daemon/copy/standing.h"

#include <algorithm>

#include "services/backup_daemon/copy/compare.h"
#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/final_name.h"

namespace services {
namespace {

using Kind = Standing::Kind;

// How often a name may change hands while it is looked over.
constexpr int MOST_LOOKS = 4;

bool is_as_recorded(const FileState& there, const CopyJob& job) {
    if (!job.recorded || job.recorded->size != there.size) return false;
    const auto& modified_ns = job.recorded->modified_ns;
    return !modified_ns || same_time(*modified_ns, there.modified_ns);
}

/// @param otherwise what a file is whose content tells nothing
Kind kind_of_content(ShareFile& file, const FileState& there, Kind otherwise, const CopyJob& job,
                     CopyState& state) {
    const long long size = state.source.size();
    const bool is_recorded = otherwise == Kind::recorded;
    if (there.size == size || (there.size < size && !is_recorded)) {
        const long long equal = equal_until(file, 0, there.size, state);
        if (equal == there.size) return equal == size ? Kind::equal : Kind::beginning;
        if (!is_recorded && has_only_remnants(file, equal, there.size, state)) return Kind::remnant;
    }
    if (is_claim(file, there.size, job.claim)) return Kind::claim;
    if (!is_recorded && is_claim_remnant(file, there.size, job.claim)) return Kind::remnant;
    return otherwise;
}

/// What spoils copies may spoil recordings, too: then the copy is all that there is. A recording
/// that was written to since has another content by right.
void keep_what_is_as_made(ShareFile& file, const CopyJob& job, CopyState& state) {
    const RecordedCopy& copy = *job.recorded;
    if (!copy.doubted || state.source.modified_ns() != copy.source_modified_ns) return;
    if (copy.sha256.empty() || hash_of(file, copy.size, state) != copy.sha256) return;
    throw CopyFailure(FailureKind::source,
                      job.target +
                          ": the copy is as it was made and stays, but its recording has "
                          "another content now");
}

Standing look_over(Share& share, const CopyJob& job, CopyState& state) {
    state.hash.restart();
    const auto there = share.look(job.target);
    if (!there) return {};
    const bool recorded = is_as_recorded(*there, job);
    const Kind otherwise = recorded ? Kind::recorded : Kind::foreign;
    // A content that decides is not longer than what it is compared with.
    const auto longest = std::max<long long>(state.source.size(), job.claim.size());
    const bool decides = recorded ? there->size == state.source.size() : there->size <= longest;
    if (!decides) return {otherwise, *there};
    const auto file = share.open(job.target, Share::Open::read);
    const Kind kind = kind_of_content(*file, *there, otherwise, job, state);
    if (kind == Kind::recorded) keep_what_is_as_made(*file, job, state);
    return {kind, *there};
}

}  // namespace

/// What was read may be another file than was looked at: a claim is replaced by a copy.
Standing what_stands_there(Share& share, const CopyJob& job, CopyState& state) {
    Standing found = look_over(share, job, state);
    for (int look = 1; found.kind == Kind::foreign && look < MOST_LOOKS; ++look) {
        if (share.look(job.target) == found.seen) break;
        found = look_over(share, job, state);
    }
    return found;
}

}  // namespace services
