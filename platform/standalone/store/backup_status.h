// How the backups are: what each task is at, and what somebody should look after.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/run_record.h"
#include "platform/standalone/store/task_store.h"
#include "platform/standalone/store/undelivered_alerts.h"

namespace standalone {

/// How far a run has come, as the daemon wrote it down last.
struct RunProgress {
    double percent = 0;
    double rate = 0;  ///< bytes per second
    FileAmount done;  ///< what need not be sent any more
    FileAmount left;
    std::optional<long long> seconds_left;  ///< nothing while nobody can tell
    std::string message;                    ///< what the run waits for; mostly ""
    long long time_ms = 0;                  ///< when this was so
};

/// A task and how it fares. Times are seconds since the epoch.
struct TaskStatus {
    TDataBackupConfig task;
    std::optional<std::size_t> place;     ///< in the queue, from 0 on
    std::optional<RunProgress> progress;  ///< only while it runs
    std::optional<RunRecord> last_run;    ///< the newest, which may be going on
    std::optional<RunRecord> last_whole;  ///< the newest that succeeded or failed
    bool is_known = false;  ///< the daemon has looked at its schedule, and `health` is read
    TaskHealth health;
    bool found_nothing = false;  ///< its last success, unlike earlier ones of the same
    std::optional<long long> next_run;
    bool overdue = false;
    std::string missing;  ///< what it "has" or "is", so that no success counts; "": one does
    std::vector<std::string> problems;  ///< each in words
    std::vector<std::string> remedies;  ///< what to do about them, as far as that is known
    std::vector<std::string> notes;     ///< what is to be known, and is nothing to be mended

    bool runs() const;
};

/// Whether the recordings are safe.
enum class Verdict {
    safe,          ///< each enabled task has a success that counts, and nothing has problems
    not_yet_safe,  ///< nothing has problems, and some task has yet to succeed
    attention,     ///< somebody should look after something
};

/// "safe", "not_yet_safe", "attention".
std::string_view verdict_text(Verdict verdict);

/// All of it, at one moment.
struct BackupStatus {
    long long time = 0;
    bool daemon_answers = false;
    bool is_memory_read = false;  ///< what the daemon keeps: otherwise a problem says why not
    std::vector<TaskStatus> tasks;
    std::vector<Channel> cameras;  ///< those there are; not the removed ones
    std::vector<UndeliveredAlert> alerts;
    std::vector<GivenUpReceiver> given_up;
    std::vector<std::string> problems;  ///< of no single task
    std::vector<std::string> notes;     ///< what is to be known, and is nothing to be mended

    bool needs_attention() const;

    /// What the headline begins with. Nobody else may call a recording safe.
    Verdict verdict() const;

    /// One sentence for people who know nothing of it: are the recordings safe?
    std::string headline() const;
};

/// Adds what needs attention to what was read, and what is to be known: of all, and of each task.
void judge(BackupStatus& status);

/// Those problems and notes of judge() that name nothing, and so are always in the same words.
std::vector<std::string> constant_status_texts();

}  // namespace standalone
