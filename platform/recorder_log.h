// The recorder's logs: a debug file for developers and the event log that administrators read.
#pragma once

/// Appends one formatted line to a debug file, as formatted (the format brings its own newline).
/// Control characters that arguments have brought are spelt out, tabs apart: a newline that is not
/// at the line's end as `\n`, so that no argument can write a line of its own. The file is made
/// with mode 0600 and its folder, where missing, with mode 0700. When it has grown past 4 MiB it is
/// renamed to "<path>.1", replacing an older one, and begun anew, so that both together never take
/// more than 8 MiB and one line. A line longer than 64 KiB is cut there and ends in "...\n". A log
/// that cannot be written is silently left out: it never fails the request.
/// @param path the debug file; a symbolic link in its place is not followed
/// @param format printf format (C17 7.23.6.1), followed by its arguments
void log_File_Debug(const char* path, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

/// How many events alike a minute may hold (send_surveillance_event_log).
inline constexpr int EVENTS_A_MINUTE = 100;

// Events. Both calls take texts up to a closing null: first the application (events::APPLICATION),
// then what the event is about. Texts are stored as they are, null addresses and users as empty
// texts. An event that cannot be stored is reported by the result and nowhere else.

/// Records that a user changed a setting.
/// @param event_id event identifier (platform/event_ids.h)
/// @param channel channel index, -1 for none
/// @param ip address of the client; may be null
/// @param user_name the authenticated user; may be null
/// @return 0 when the event is stored, non-zero otherwise
int send_surveillance_setting_log_with_username(unsigned event_id, int channel, const char* ip,
                                                const char* user_name, ...)
    __attribute__((sentinel));

/// Records that a run was asked for, or something that happened in one. Parameters as above; the
/// user is "System". Machines ask without end, and requests that fail can ask for runs, too: when
/// a minute holds EVENTS_A_MINUTE alike, the next one is left out and noted in the debug file.
/// Alike are those of one identifier and, where they tell of a run, of one
/// task, or of a sign-in, of one account.
/// @return 0 when the event is stored or left out, non-zero otherwise
int send_surveillance_event_log(unsigned event_id, int channel, const char* ip, ...)
    __attribute__((sentinel));

/// Where this system's debug lines go.
inline constexpr char RECORDER_DEBUG_FILE[] = "/Zdbglog/.cgi_log/.cgi.log";

// One debug line, led by the function and source line it comes from. A macro for the caller's
// __func__ and __LINE__; `format` is a literal, newline included.
#define DEBUG_LINE(format, ...)                                       \
    log_File_Debug(RECORDER_DEBUG_FILE, "(%s)(%d) " format, __func__, \
                   __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// The same without the source line.
#define DEBUG_NOTE(format, ...) \
    log_File_Debug(RECORDER_DEBUG_FILE, "(%s) " format, __func__ __VA_OPT__(, ) __VA_ARGS__)
