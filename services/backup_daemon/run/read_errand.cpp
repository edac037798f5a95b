// A copy's reading back: what it is compared with is opened here, the process reads the share.
#include "services/backup_daemon/run/read_errand.h"

#include <utility>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/run/open_recording.h"

namespace services {

ErrandStep ReadErrand::begin() {
    const bool hashed = !order_.copy.sha256.empty();
    standalone::FileHandle source = hashed ? standalone::FileHandle() : open_source();
    reads_content_ = hashed || source;
    return {.ask = order_.copy, .file = std::move(source)};
}

/// Nothing when there is no recording any more that the copy is of.
standalone::FileHandle ReadErrand::open_source() const {
    if (order_.recordings.empty()) return standalone::FileHandle();
    try {
        OpenRecording recording = open_recording(order_.recordings, order_.source);
        const bool is_it =
            recording.size == order_.copy.size && recording.modified_ns == order_.modified_ns;
        return is_it ? std::move(recording.file) : standalone::FileHandle();
    } catch (const CopyFailure&) {
        return standalone::FileHandle();
    }
}

std::optional<ErrandStep> ReadErrand::take(const WorkerReport& said) {
    if (const auto* at = std::get_if<At>(&said); at && at->offset == 0 && !at->begins)
        return ErrandStep{.tell = {*at}};
    const auto* seen = std::get_if<CopySeen>(&said);
    if (!seen) return {};
    // Who has read nothing knows of no content.
    if (seen->condition == Condition::other_content && !reads_content_) return {};
    return ErrandStep{.tell = {*seen}, .over = true};
}

}  // namespace services
