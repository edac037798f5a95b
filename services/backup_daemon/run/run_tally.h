// What a run has planned, done and failed, counted as reports come in: percent, speed, time left.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "services/backup_daemon/memory/progress_store.h"
#include "services/backup_daemon/memory/run_history.h"
#include "services/backup_daemon/run/progress.h"
#include "services/clock.h"

namespace services {

/// One file's part in the figures, from its first attempt to its end.
struct FileCount {
    long long planned = 0;   ///< bytes it counts for among the planned ones
    long long done = 0;      ///< of them on the share
    long long furthest = 0;  ///< the most of them that ever were
    bool begun = false;      ///< how much was there before this attempt is known
    bool was_sent = false;   ///< sending has begun, in this attempt or an earlier one
};

/// What a run that is taken up again had done before the daemon's end.
struct EarlierPart {
    long long files = 0;          ///< complete
    long long bytes = 0;          ///< of them
    long long bytes_planned = 0;  ///< of all files; 0: there is no earlier part
    double percent = 0;           ///< that people were told
};

/// Counts files and bytes. At every moment the planned files are the done, the failed and the left
/// ones, and a percent that was told never gets smaller.
class RunTally {
public:
    /// @param clock outlives the tally
    /// @param earlier counts as done, beside what is planned from now on
    explicit RunTally(const Clock& clock, const EarlierPart& earlier = {})
        : clock_(clock),
          earlier_(earlier),
          begun_(clock.steady()),
          measuring_(earlier.bytes_planned > 0),
          percent_(earlier.percent) {}

    /// So many more files and bytes are planned; negative: fewer, when a day was counted again.
    void plan(long long files, long long bytes);

    /// All days have been looked at once. Before, little of the rest is planned, and an earlier
    /// part would look like nearly all of it: its own figures stand until then.
    void measured();

    /// Nothing more will be planned: only now may the percent be 100.
    void all_planned();

    /// `offset` bytes of a file are on the share. The first time of an attempt tells what was there
    /// before, and that counts as done but not as moved now. Bytes that are sent again are moved
    /// again, but no progress.
    void reached(FileCount& file, long long offset);

    /// A file is complete with `size` bytes, which may be others than were planned.
    void finished(FileCount& file, long long size);

    /// A planned file was given up; it takes its bytes along.
    /// @param path its copy's, below the destination's folder; "": it is no file
    void gave_up(const FileCount& file, const std::string& why, const std::string& path = "");

    /// A file that is not planned stands on the share as it should.
    void kept(long long bytes) { add(kept_, bytes); }

    /// So many copies have gone, for their age or to make room.
    void removed(const standalone::FileAmount& copies);

    /// Something went well that is no part of the figures, and is progress all the same.
    void went_on() { progressed_ = true; }

    /// Whether a file got further than ever, or was finished, or something went on, since the last
    /// call.
    bool take_progress();

    /// Reads the speed: once the run has connected, and then once a second or so.
    void note_speed();

    long long files_failed() const { return files_failed_; }

    /// Bytes that are planned and not on the share.
    long long bytes_left() const { return bytes_planned_ - bytes_done_; }

    /// Files that are planned and neither complete nor given up.
    long long files_left() const { return files_planned_ - files_done_ - files_failed_; }

    /// How many files were given up, and why the first; "" when none was.
    std::string failure() const;

    /// All of it as the store keeps it.
    /// @param message what the run waits for or failed of
    RunFigures figures(const std::string& message) const;

    /// The same for the history: what this run itself has done.
    RunAccount account(const std::string& message) const;

private:
    static void add(standalone::FileAmount& amount, long long bytes);
    void note_percent();
    std::optional<long long> time_left() const;
    long long planned() const;
    long long done() const { return earlier_.bytes + bytes_done_; }

    const Clock& clock_;
    const EarlierPart earlier_;
    const std::chrono::milliseconds begun_;
    bool measuring_;
    bool all_planned_ = false;
    bool progressed_ = false;
    long long files_planned_ = 0;
    long long files_done_ = 0;
    long long files_failed_ = 0;
    long long bytes_planned_ = 0;
    long long bytes_done_ = 0;
    long long bytes_moved_ = 0;
    double percent_;
    std::string first_failure_;
    standalone::FileAmount sent_;    ///< bytes of the files, however many of them were sent
    standalone::FileAmount stood_;   ///< planned files of which nothing had to be sent
    standalone::FileAmount kept_;    ///< files that were not planned
    standalone::FileAmount failed_;  ///< with the bytes that were planned
    standalone::FileAmount removed_;
    std::vector<standalone::FailedFile> failures_;
    RateMeter rate_{std::chrono::seconds(5)};
    RateMeter last_minute_{std::chrono::minutes(1)};
};

}  // namespace services
