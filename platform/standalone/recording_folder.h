// A channel's recordings: <folder>/YYYY-MM-DD/HH-MM-SS.<ext>, alarm ones under alarm/ of the day.
#pragma once

#include <optional>
#include <string>

namespace standalone {

/// Start times are milliseconds since the epoch; a day or time in a name is local. Symbolic links
/// below the channel's folder are not followed, what cannot be read is skipped, and so are names of
/// another form and days that have not begun yet.
struct RecordingSummary {
    int normal_days = 0;
    int alarm_days = 0;
    std::optional<long long> earliest;  ///< start of the oldest recording of either kind
    std::optional<long long> latest;    ///< start of the newest recording of either kind
};

/// Counts days by the folders' names and looks into a day only as far as it must.
RecordingSummary summarize_recordings(const std::string& folder);

/// Bytes on disk.
struct RecordingSizes {
    long long normal = 0;
    long long alarm = 0;
};

RecordingSizes measure_recordings(const std::string& folder);

/// When the newest recording was last written to, in seconds since the epoch; nothing without one.
std::optional<long long> newest_write(const std::string& folder);

}  // namespace standalone
