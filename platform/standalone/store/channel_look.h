// What one look at a channel's folder has found: its edges, and how many days lie between.
#pragma once

#include <string>
#include <vector>

#include "platform/standalone/store/folder_stamp.h"

namespace standalone {

/// What one day's folder holds; start times as the names have them.
struct DayLook {
    std::string name;
    FolderStamp folder{};  ///< tells nothing when the day could not be read to its end
    bool has_alarm_folder = false;
    FolderStamp alarm_folder{};
    bool normal = false;  ///< it has normal recordings
    bool alarm = false;   ///< it has alarm recordings
    int first_second = 86400;
    int last_second = -1;
    std::string newest{};  ///< newest recording, below the day's folder

    bool empty() const { return !normal && !alarm; }
};

/// Days that have not begun are none. What cannot be read has no recordings.
struct ChannelLook {
    FolderStamp folder{};  ///< tells nothing when it could not be read to its end
    std::string last_day;  ///< the newest day's folder; "" without one
    std::string next_day;  ///< the first day's that has not begun; "" without one
    /// Days without recordings and behind them, unless that is the newest one, the first with some.
    std::vector<DayLook> oldest;
    std::vector<DayLook> newest;  ///< the same from the other end: without, then the last with some
    int between = 0;              ///< days between the first and the last with recordings
    int alarm_between = 0;        ///< of these, with a folder alarm/

    /// Whether there is any recording: first() and last() are for those that have some.
    bool empty() const { return newest.empty() || newest.back().empty(); }
    const DayLook& last() const { return newest.back(); }
    const DayLook& first() const;
};

/// Reads the channel's folder and the days at its ends.
/// @param looked_at a moment that is not later than the call
ChannelLook look_at_channel(const std::string& folder, const Moment& looked_at);

/// Reads one day.
/// @param folder the channel's
DayLook look_at_day(const std::string& folder, const std::string& day, const Moment& looked_at);

}  // namespace standalone
