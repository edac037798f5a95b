// Keeps what looks at channels' folders have found, for as long as the folders do not change.
#include "platform/standalone/store/recording_index.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

#include "platform/standalone/store/day_folders.h"

namespace standalone {

namespace {

/// What no stamp tells is not believed for longer, whatever it is.
constexpr long long LONGEST_TRUST = 24LL * 3600 * 1'000'000'000;

/// A day without a folder alarm/ has got none while its own folder has not changed.
bool is_current(const std::string& folder, const DayLook& day) {
    const std::string path = folder + '/' + day.name;
    return has_stamp(path, day.folder) &&
           (!day.has_alarm_folder || has_stamp(path + '/' + ALARM_FOLDER, day.alarm_folder));
}

std::optional<long long> last_write(const std::string& path) {
    struct stat found {};
    if (fstatat(AT_FDCWD, path.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) return {};
    return found.st_mtime;
}

}  // namespace

RecordingIndex::RecordingIndex(std::string path)
    : path_(std::move(path)), looks_(read_looks(path_)), clock_(Moment::now()), today_(today()) {}

RecordingIndex::RecordingIndex(std::string path, const Moment& clock)
    : path_(std::move(path)), looks_(read_looks(path_)), clock_(clock), today_(today()) {}

RecordingSummary RecordingIndex::summarize(const std::string& folder) {
    summarized_.insert(folder);
    const ChannelLook* look = known(folder, true);
    return standalone::summarize(look != nullptr ? *look : look_anew(folder));
}

std::optional<long long> RecordingIndex::newest_write(const std::string& folder) {
    const ChannelLook* look = known(folder, false);
    if (look != nullptr && look->empty()) return {};
    const auto written =
        look == nullptr ? std::nullopt
                        : last_write(folder + '/' + look->last().name + '/' + look->last().newest);
    return written ? written : standalone::newest_write(folder);
}

void RecordingIndex::save() {
    if (!is_news_) return;
    std::erase_if(looks_, [this](const auto& kept) {
        return kept.second.look.folder.inode == 0 || !summarized_.contains(kept.first);
    });
    write_looks(path_, looks_);
    is_news_ = false;
}

/// The days have changed when another one begins, too.
bool RecordingIndex::is_current(const std::string& folder, const KeptLook& kept) const {
    const ChannelLook& look = kept.look;
    return has_run_on(kept.looked_at, clock_) &&
           clock_.now_ns - kept.looked_at.now_ns <= LONGEST_TRUST && look.last_day <= today_ &&
           (look.next_day.empty() || today_ < look.next_day) &&
           has_stamp(folder, look.folder, true);
}

/// Reads those days anew that have changed.
/// @return false when other days may be at the ends of the channel's now
bool RecordingIndex::refresh(const std::string& folder, std::vector<DayLook>& days) {
    for (DayLook& day : days) {
        if (standalone::is_current(folder, day)) continue;
        const bool was_empty = day.empty();
        day = look_at_day(folder, day.name, clock_);
        if (day.empty() != was_empty) return false;
        is_news_ = is_news_ || day.folder.inode != 0;
    }
    return true;
}

/// What is known of a channel; null when its folder is to be looked at.
/// @param with_oldest whether the oldest days are asked for, too: the newest ones always are
ChannelLook* RecordingIndex::known(const std::string& folder, bool with_oldest) {
    const auto found = looks_.find(folder);
    if (found == looks_.end()) return nullptr;
    ChannelLook& look = found->second.look;
    if (is_current(folder, found->second) && refresh(folder, look.newest) &&
        (!with_oldest || refresh(folder, look.oldest)))
        return &look;
    looks_.erase(found);
    return nullptr;
}

const ChannelLook& RecordingIndex::look_anew(const std::string& folder) {
    KeptLook& kept = looks_[folder];
    kept = {clock_, look_at_channel(folder, clock_)};
    is_news_ = is_news_ || kept.look.folder.inode != 0;
    return kept.look;
}

}  // namespace standalone
