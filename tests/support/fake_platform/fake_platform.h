// An in-memory recorder for tests: records every platform call, answers as told, fails and throws
// on demand.
#pragma once

#include <functional>
#include <list>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "backup/task_record.h"
#include "platform/cgi_input.h"
#include "platform/rec_state.h"
#include "platform/vesk_storage.h"

namespace fake {

/// One platform call with its arguments as texts: numbers in decimal, event identifiers as
/// "0x%08x", booleans as "true" and "false", null texts as "(null)", outputs left out. The
/// arguments of an HTTP call are host, port, path, body (or "name=value" joined by "&"), time-out
/// and the last four, so nine in all. The configuration store's begin with the source file; the
/// source line is only checked to be positive ("line") since it moves with every edit.
struct Call {
    std::string name;
    std::vector<std::string> args;

    bool operator==(const Call&) const = default;
};

/// Shows a call as "name(argument, argument)" where a test fails.
std::ostream& operator<<(std::ostream& out, const Call& call);

/// One debug line, taken apart: "(function)(line) text".
struct DebugLine {
    std::string path;
    std::string function;
    int line;
    std::string text;  ///< what follows the blank after the line number, newline included
};

/// Everything the recorder holds and everything that was asked of it. Tests set the former and read
/// the latter; reset() puts both back.
struct Platform {
    std::vector<Call> calls;
    std::vector<DebugLine> debug;

    // the request
    std::map<std::string, std::string> parameters;  ///< of the query string
    std::string user = "admin";
    std::string long_user;  ///< second name area of the session
    unsigned level = 11;    ///< level of the session's user

    // the configuration store
    std::list<TDataBackupConfig> tasks;
    std::vector<std::string> stored;          ///< settings texts, oldest first, as received
    std::map<std::string, std::string> keys;  ///< "section/key" to value
    std::string channel_settings = R"({"datas": []})";  ///< handed out as Base64

    // the backup daemon and the log service
    std::map<std::string, std::string>
        query_replies;  ///< value of query parameter "act" to reply body

    // recordings
    std::list<TRemovedChannelInfo> removed_channels;
    std::vector<TChannelStatus> channel_states;
    std::string state_text = "{}";
    int normal_days[VESK_MAX_CHANNELS] = {};
    int alarm_days[VESK_MAX_CHANNELS] = {};
    long long earliest[VESK_MAX_CHANNELS] = {};
    long long latest[VESK_MAX_CHANNELS] = {};

    // programs
    std::function<void(const Call&)> on_program;  ///< called by zorv_exec, its output written

    // the clock
    unsigned long long now_ms = 1700000000000ULL;
    unsigned long long tick_ms = 0;  ///< how far each reading moves it
    long long utc_offset_ms = 0;
};

extern Platform platform;

/// Puts the platform into its first state: no tasks, an administrator's session, a daemon that
/// accepts everything and has nothing to do, the file explorer's key absent.
void reset();

/// Makes the `nth` call from now of that name fail with `code`, 0 meaning every one. Calls that
/// return a pointer return null, getters return false; __nvrcfg_get_key_value returns -1 with
/// `code` as reason; zorv_exec exits with `code` after writing its output.
void fail(const std::string& name, int code, int nth = 0);

/// Makes the `nth` call from now of that name throw std::runtime_error, 0 meaning every one.
void throw_from(const std::string& name, int nth = 0);

/// Queues a text for the next calls of that name: the reply body of an HTTP call, the value of a
/// key, what a program writes to its standard output. Queued texts come before the settings in
/// Platform.
void answer(const std::string& name, const std::string& text);

/// The calls that reach something outside the process, in order: no debug lines, JSON getters,
/// Base64, clock, character checks or changes of the process's rights.
std::vector<Call> effects();

/// Names of effects(), in order.
std::vector<std::string> effect_names();

/// Calls of one name, in order.
std::vector<Call> calls_of(const std::string& name);

/// Texts of the debug lines, in order.
std::vector<std::string> debug_texts();

}  // namespace fake
