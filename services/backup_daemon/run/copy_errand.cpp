// A recording's copy: opened here, sent by the process, and told as it was when it was opened.
#include "services/backup_daemon/run/copy_errand.h"

#include <utility>

#include "services/backup_daemon/copy/file_copier.h"
#include "services/backup_daemon/copy/transfer.h"
#include "services/backup_daemon/run/open_recording.h"

namespace services {
namespace {

constexpr std::size_t DIGITS_OF_A_HASH = 64;

bool is_hash(const std::string& text) {
    return text.size() == DIGITS_OF_A_HASH &&
           text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

}  // namespace

ErrandStep CopyErrand::begin() {
    try {
        OpenRecording recording = open_recording(job_.recordings, job_.source);
        size_ = recording.size;
        modified_ns_ = recording.modified_ns;
        notes_left_ = COPY_ATTEMPTS * (size_ / CHECKPOINT_BYTES + 1);
        // The server may copy the beginning of what is there.
        if (job_.recorded) ++notes_left_;
        return {.ask = SendFile{job_, size_, modified_ns_}, .file = std::move(recording.file)};
    } catch (const CopyFailure& failure) {
        return {.tell = {Failed{failure.kind, failure.what()}}, .over = true};
    }
}

std::optional<ErrandStep> CopyErrand::take(const WorkerReport& said) {
    if (const auto* whole = std::get_if<Whole>(&said)) return finish(*whole);
    if (const auto* at = std::get_if<At>(&said); at && is_inside(at->offset))
        return ErrandStep{.tell = {*at}};
    if (const auto* noted = std::get_if<Noted>(&said); noted && may_note(*noted))
        return ErrandStep{.tell = {*noted}};
    return {};
}

bool CopyErrand::may_note(const Noted& noted) {
    const bool says_a_hash = noted.sha256.empty() || is_hash(noted.sha256);
    return says_a_hash && is_inside(noted.offset) && notes_left_-- > 0;
}

/// A hash is told where one was asked for, and nowhere else. The copy's time may be any: the server
/// tells it, and what stood there already may have been touched by anybody.
std::optional<ErrandStep> CopyErrand::finish(const Whole& whole) const {
    const bool hashed = job_.check || job_.side_file;
    if (hashed ? !is_hash(whole.sha256) : !whole.sha256.empty()) return {};
    return ErrandStep{.tell = {Copied{{.size = size_,
                                       .modified_ns = modified_ns_,
                                       .sha256 = whole.sha256,
                                       .share_modified_ns = whole.share_modified_ns}}},
                      .over = true};
}

}  // namespace services
