// The recorder's small helpers: run a program, Base64, forbidden characters, the clock.
#pragma once

#include <string>

/// Seconds that a program started by zorv_exec may take.
inline constexpr int ZORV_EXEC_LIMIT_SECONDS = 60;

/// Status of zorv_exec for a program that could not be started.
inline constexpr int ZORV_EXEC_NOT_STARTED = 127;

/// Status of zorv_exec for a program that was ended because its time was up (as timeout(1) has it).
inline constexpr int ZORV_EXEC_TIMED_OUT = 124;

/// Result of zorv_exec when a file for the output could not be made or written. No exit status is
/// negative.
inline constexpr int ZORV_EXEC_NO_OUTPUT = -1;

/// Runs a program with the given arguments, without a shell, and waits for it. The program gets no
/// standard input, an environment of PATH and LC_ALL=C.UTF-8 alone, no other open files, and the
/// caller's effective user as its real one. After ZORV_EXEC_LIMIT_SECONDS it and all its children
/// are killed. A program that cannot be started, or is killed then, has words on its standard error
/// that say so, as a shell would: "/usr/bin/tool: No such file or directory", "/usr/bin/tool: timed
/// out", and a line end. SIGCHLD is no longer ignored afterwards.
/// @param stdout_path file that receives standard output: a new one with mode 0600 in the place of
///         whatever lies there, a link among it, which is removed and not followed; at most 64 MiB
///         are kept. Null discards it.
/// @param stderr_path the same for standard error; the same path as stdout_path shares one file
/// @param extra_path reserved by the recorder's library for its own trace; accepted, not used
/// @param program absolute path
/// @param ... arguments of type const char*, then a null
/// @return the exit status 0 to 255; 128 + N for a program killed by signal N; ZORV_EXEC_TIMED_OUT;
///         ZORV_EXEC_NOT_STARTED; ZORV_EXEC_NO_OUTPUT when a file cannot be made, as where a folder
///         lies in its place: the program is not started, and what lies there is not its output;
///         and when a file cannot be written, as on a full disk: none is left
int zorv_exec(const char* stdout_path, const char* stderr_path, const char* extra_path,
              const char* program, ...) __attribute__((sentinel));

/// Encodes `length` bytes as standard Base64 (RFC 4648 section 4), padded, on one line.
/// @param out replaced by the text
/// @return 0
int b64_encode_v2(const unsigned char* data, unsigned length, std::string& out);

/// Decodes standard Base64; line breaks and missing padding are accepted.
/// @param out replaced by the bytes on success, unchanged on failure
/// @return 0 on success; non-zero when `in` holds anything else
int b64_decode_v2(const std::string& in, std::string& out);

/// @return non-zero when `text` holds any character of `blackset`
int check_black_chrset(const char* text, const char* blackset);

/// @return milliseconds since the epoch (1970-01-01 00:00 UTC)
unsigned long long current_time_stamp();

/// Shifts a time to local wall-clock time: adds the UTC offset that is valid at that moment, summer
/// time included.
/// @param milliseconds since the epoch
/// @return the shifted count of milliseconds
long long conv_to_local_time(long long milliseconds);
