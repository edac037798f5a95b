// The settings that the programs read: sections and keys of the configuration store, and their
// values.
#pragma once

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

/// What kind of value a setting has. Texts that are no such value count as its default, but for a
/// switch's: whatever is not "0" is on.
enum class SettingKind {
    on_off,  ///< "0" or "1"
    number,  ///< decimal, without sign
};

/// One setting.
struct KnownSetting {
    std::string_view section;
    std::string_view key;
    SettingKind kind;
    long long least;
    long long most;
    long long otherwise;  ///< what counts when it is not set
    std::string_view meaning;
};

/// All of them, by section and key. What reads one: backup/fuse_status.cpp,
/// services/backup_daemon/run/run_settings.cpp, services/event_log/retention.cpp.
inline constexpr std::array KNOWN_SETTINGS = {
    KnownSetting{.section = "backup",
                 .key = "check_reading",
                 .kind = SettingKind::on_off,
                 .least = 0,
                 .most = 1,
                 .otherwise = 1,
                 .meaning = "copies are read back and compared before they get their names"},
    KnownSetting{.section = "backup",
                 .key = "max_parallel",
                 .kind = SettingKind::number,
                 .least = 1,
                 .most = std::numeric_limits<int>::max(),
                 .otherwise = 2,
                 .meaning = "tasks that may run side by side"},
    KnownSetting{.section = "fuse",
                 .key = "fuse_enabled",
                 .kind = SettingKind::on_off,
                 .least = 0,
                 .most = 1,
                 .otherwise = 1,
                 .meaning = "the file explorer is on"},
    KnownSetting{.section = "log",
                 .key = "keep_days",
                 .kind = SettingKind::number,
                 .least = 1,
                 .most = std::numeric_limits<int>::max(),
                 .otherwise = 365,
                 .meaning = "days that events are kept"},
};

/// A setting by its names; null when nothing reads it.
constexpr const KnownSetting* find_setting(std::string_view section, std::string_view key) {
    const auto* found = std::find_if(KNOWN_SETTINGS.begin(), KNOWN_SETTINGS.end(),
                                     [&](const KnownSetting& setting) {
                                         return setting.section == section && setting.key == key;
                                     });
    return found == KNOWN_SETTINGS.end() ? nullptr : found;
}
