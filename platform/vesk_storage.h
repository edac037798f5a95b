// The recorder's recording storage: which days are on disk, and removed channels that still have
// recordings.
#pragma once

#include <list>
#include <string>

/// Channels the recorder can hold; every per-channel array has this many entries.
inline constexpr int VESK_MAX_CHANNELS = 128;

/// Selector of get_channel_config_list: channels that are no longer configured.
inline constexpr int VESK_REMOVED_CHANNELS = 2;

/// A channel that was removed from the recorder.
struct TRemovedChannelInfo {
    int channel_index = -1;        ///< its former index
    std::string uuid;              ///< its identity, as "guid" was
    std::string display_name;      ///< its former name
    long long primary_size = 0;    ///< bytes of normal recordings still on disk
    long long secondary_size = 0;  ///< bytes of alarm recordings still on disk
};

/// Settings of the recording storage. Made and released by CVeskStorage.
class IStorageSetting {
public:
    virtual ~IStorageSetting() = default;

    /// Appends to `out` the channels that `selector` asks for, by ascending index.
    /// @param selector VESK_REMOVED_CHANNELS; any other value is refused
    /// @return 0 on success; non-zero when the selector is refused or the storage cannot be read,
    ///         and then `out` is as it was
    virtual int get_channel_config_list(std::list<TRemovedChannelInfo>& out, int selector) = 0;
};

/// Gives access to the recording storage.
class CVeskStorage {
public:
    /// @param setting receives the object; owned by the caller until destroy_storage_setting
    /// @return 0 on success; otherwise non-zero, and *setting is null
    int create_storage_setting(IStorageSetting** setting);

    /// Releases *setting and sets it to null.
    /// @return 0 on success; non-zero when there is nothing to release
    int destroy_storage_setting(IStorageSetting** setting);
};

/// Counts the days that have recordings, per channel. The four arrays have VESK_MAX_CHANNELS
/// entries each, indexed by channel index, cleared by the caller; entries of channels without
/// recordings are left alone. Days are local calendar days; times are milliseconds since the epoch.
/// @param normal_days days with normal recordings
/// @param alarm_days days with alarm recordings; of those between the oldest and the newest day
///        with recordings it may be as of a day ago
/// @param earliest start of the oldest recording of either kind
/// @param latest start of the newest recording of either kind
/// @return 0 on success; non-zero when the storage cannot be read at all
int get_storage_days(int* normal_days, int* alarm_days, long long* earliest, long long* latest);
