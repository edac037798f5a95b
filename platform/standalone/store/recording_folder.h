// A channel's recordings: <folder>/YYYY-MM-DD/HH-MM-SS.<ext>, alarm ones under alarm/ of the day.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace standalone {

/// Start times are milliseconds since the epoch; a day or time in a name is local. Symbolic links
/// below the channel's folder are not followed; names of another form are skipped, and so are days
/// that have not begun yet. What cannot be read is skipped, too, unless a function throws.
struct RecordingSummary {
    int normal_days = 0;
    int alarm_days = 0;
    std::optional<long long> earliest;  ///< start of the oldest recording of either kind
    std::optional<long long> latest;    ///< start of the newest recording of either kind
};

struct ChannelLook;

RecordingSummary summarize(const ChannelLook& look);

/// Looks into the oldest and the newest day with recordings alone. Of the days between them every
/// folder counts as a day with normal recordings, and one with a folder alarm/ as a day with alarm
/// recordings, too.
RecordingSummary summarize_recordings(const std::string& folder);

/// Bytes on disk.
struct RecordingSizes {
    long long normal = 0;
    long long alarm = 0;
};

RecordingSizes measure_recordings(const std::string& folder);

/// One recording.
struct RecordingFile {
    std::string name;  ///< in its folder
    bool alarm = false;
    long long size = 0;         ///< bytes
    long long modified_ns = 0;  ///< last write, nanoseconds since the epoch
};

/// A folder that is not there, must not be read, or cannot be read to its end. what() names it and
/// says why.
class UnreadableFolder : public std::runtime_error {
public:
    UnreadableFolder(const std::string& folder, int error);
};

/// The days from `first` to `last` (names of day folders, both included) that have begun, oldest
/// first.
/// @throws UnreadableFolder
std::vector<std::string> recording_days(const std::string& folder, const std::string& first,
                                        const std::string& last);

/// More than these a day has no seconds for.
inline constexpr std::size_t MOST_OF_A_DAY = 200'000;

struct RecordingKinds {
    bool normal = true;
    bool alarm = true;
};

/// The recordings of one day, in the order of their names, normal ones first; none of a day that
/// there is not (any more). A folder of recordings that are not wanted need not be readable.
/// @throws UnreadableFolder
/// @throws std::length_error when there are more than `most`
std::vector<RecordingFile> recordings_of_day(const std::string& folder, const std::string& day,
                                             RecordingKinds kinds = {},
                                             std::size_t most = MOST_OF_A_DAY);

/// Why the days in a channel's folder cannot be listed; "" when they can.
std::string recordings_problem(const std::string& folder);

/// Start of a recording in seconds since the epoch, as day and name have it.
long long recording_start(const std::string& day, const std::string& name);

/// When the newest recording was last written to, in seconds since the epoch; nothing without one.
std::optional<long long> newest_write(const std::string& folder);

}  // namespace standalone
