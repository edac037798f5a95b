// The recorder's channels, present and removed, in the configuration database.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/standalone/store/database.h"

namespace standalone {

/// One channel.
struct Channel {
    int index = 0;     ///< 0 to 127; one live channel at most has it
    std::string guid;  ///< identity; no two channels share it, removed ones included
    std::string ip;
    std::string name;
    std::string brand;
    std::string model;
    int streams = 0;         ///< 0 to 16
    std::string recordings;  ///< folder of its recordings
    bool removed = false;    ///< no longer configured, but its recordings are still there
    std::optional<std::vector<int>>
        pinned_state;  ///< per stream; otherwise read off the recordings
};

/// The stored channels. Any call may throw DatabaseError.
class ChannelStore {
public:
    explicit ChannelStore(Database& database) : database_(database) {}

    /// Live and removed channels, by ascending index, live ones first among those of one index.
    std::vector<Channel> list();

    /// Stores a live channel. A removed one with the same guid has come back and is replaced.
    /// @return false when the index or the guid belongs to a live channel
    bool add(const Channel& channel);

    /// Makes a live channel a removed one.
    /// @return whether there was such a channel
    bool remove(int index);

    /// Pins the connection state of a live channel's streams; an empty list unpins it.
    /// @return whether there is such a channel
    bool pin_state(int index, const std::vector<int>& states);

private:
    Database& database_;
};

}  // namespace standalone
