// The recorder's configuration store: backup tasks, single keys, channel settings.
#pragma once

#include <list>
#include <string>

struct TDataBackupConfig;  // backup/task_record.h

// Every call but the last names its caller (source file and line) for the store's own diagnostics.
// Each call is one transaction: what one caller stores, the next one reads, whole or not at all.

/// Reason number of __nvrcfg_get_key_value for a key that does not exist.
inline constexpr int NVRCFG_KEY_NOT_FOUND = 8;

// Statuses of the store. 0 is success.
inline constexpr int NVRCFG_UNAVAILABLE = 1;  ///< the store cannot be opened, read or written
inline constexpr int NVRCFG_BUSY = 2;         ///< another writer held the store for over 5 seconds
inline constexpr int NVRCFG_BAD_TEXT =
    3;  ///< the text is no JSON object in UTF-8, or has a member twice
inline constexpr int NVRCFG_BAD_MEMBER =
    4;  ///< a member is unknown, misplaced, of the wrong kind or outside its table
inline constexpr int NVRCFG_UNKNOWN_TASK = 5;  ///< the text names a task that is not stored

/// Appends every stored backup task to `out`, oldest identifier first.
/// @return 0, or NVRCFG_UNAVAILABLE or NVRCFG_BUSY; then `out` is as it was
int __nvrcfg_get_rr_settings(const char* srcFile, int srcLine, std::list<TDataBackupConfig>& out);

/// Stores one task's settings text, a JSON object whose escapes have lost their backslash;
/// docs/formats.md gives its members and their places. Without "taskID" the text is a new task,
/// which gets an identifier one above the highest ever given, so that identifiers are never reused.
/// With "taskID" it replaces just the members it carries. The change is on disk before the call
/// returns.
/// @return 0, or one of the statuses above; then nothing has changed
int __nvrcfg_set_rr_settings(const char* srcFile, int srcLine, std::string text);

/// Reads one key of one section.
/// @param value receives the text on success and is unchanged on failure
/// @param error receives the reason on failure: NVRCFG_KEY_NOT_FOUND, NVRCFG_UNAVAILABLE or
///         NVRCFG_BUSY
/// @return 0 on success, non-zero on failure
int __nvrcfg_get_key_value(const char* srcFile, int srcLine, const char* section, const char* key,
                           std::string& value, int* error);

/// Reads the settings of all configured channels.
/// @param with_removed also channels that were removed; this system passes false
/// @param first index to begin at; this system passes 0
/// @param out receives standard Base64 of a JSON object {"datas": [channel, ...]}, channels by
///         ascending index; each has "channel_index" (integer), "guid", "ip", "name", "brand",
///         "model" (texts) and, where the channel has streams configured, "stream_state" (an array
///         with one element per stream)
/// @return 0, or NVRCFG_UNAVAILABLE or NVRCFG_BUSY; then `out` is unchanged
int cfgsvc_get_channel_setting(bool with_removed, int first, std::string& out);
