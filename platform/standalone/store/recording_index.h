// Keeps what looks at channels' folders have found, for as long as the folders do not change.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/standalone/store/look_file.h"
#include "platform/standalone/store/recording_folder.h"

namespace standalone {

/// Answers as a look into the folders would, without reading those that have not changed since they
/// were read (folder_stamp.h). One thing may be a day old: of the days between the oldest and the
/// newest, which have a folder alarm/. To know would take a look at each.
///
/// An index that is not there, or that cannot be read or written, costs time and nothing else.
class RecordingIndex {
public:
    /// @param path the index's file
    explicit RecordingIndex(std::string path);

    /// The same at a time that somebody has chosen.
    RecordingIndex(std::string path, const Moment& clock);

    /// What summarize_recordings() says.
    RecordingSummary summarize(const std::string& folder);

    /// What newest_write() says.
    std::optional<long long> newest_write(const std::string& folder);

    /// Keeps what there is to know of the folders that were summarized, and of no others.
    void save();

private:
    ChannelLook* known(const std::string& folder, bool with_oldest);
    bool is_current(const std::string& folder, const KeptLook& kept) const;
    bool refresh(const std::string& folder, std::vector<DayLook>& days);
    const ChannelLook& look_anew(const std::string& folder);

    std::string path_;
    KeptLooks looks_;  ///< read before the clock: what others have found since would be ahead of it
    Moment clock_;
    std::string today_;
    std::set<std::string> summarized_;
    bool is_news_ = false;  ///< something is known that is not kept yet
};

}  // namespace standalone
