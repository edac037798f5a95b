// From a request body to a task record, and the date texts that tasks and channels use.
#pragma once

#include <ctime>
#include <string>

struct TDataBackupConfig;  // backup/task_record.h

/// modifyMode of parser_task and mode of backupconfig_to_string.
inline constexpr int CREATE_MODE = 0;
inline constexpr int MODIFY_MODE = 1;

/// Reads a create or modify request. All or nothing: `out` is written, every field of it, only when
/// the whole body is valid; fields that no body sets get their defaults.
/// @param body JSON, may be null
/// @return 0; CGI_INPUT_FORMAT_ERROR: no body, or not JSON; CGI_PARSER_JSON_FAIL: a member is
///         missing or of the wrong kind; CGI_INVALID_VALUE: a value outside its table or range
int parser_task(TDataBackupConfig* out, const char* body, int modifyMode);

/// Splits a date text at its dashes. Numbers are read as strtol(3) does in base 10.
/// @param text "2024-03-01", or with mode 1 "2024-03-01-23-59-58"
/// @param out written on success: a local time, with summer time left for mktime(3) to find out
/// @param mode 0: year, month, day; 1: hour, minute and second too; any other: year and month, day
///         0
/// @return 0, or -1 when a dash is missing
int str_time_to_tm(std::string text, tm* out, int mode);

/// Writes the local date of a time as "2024-03-01".
/// @param seconds since the epoch
/// @param dst receives the text, NUL-terminated and cut to `size` bytes
/// @param size bytes in `dst`
void get_local_time_str(long seconds, char* dst, int size);
