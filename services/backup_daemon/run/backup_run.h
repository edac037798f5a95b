// One run of one task: looks for recordings, has them copied, cleans up, ends.
#pragma once

#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "backup/task_record.h"
#include "platform/standalone/store/channel_store.h"
#include "services/backup_daemon/copy/remote_name.h"
#include "services/backup_daemon/lane/worker.h"
#include "services/backup_daemon/memory/copy_store.h"
#include "services/backup_daemon/memory/progress_store.h"
#include "services/backup_daemon/run/progress.h"
#include "services/backup_daemon/run/retry_pause.h"
#include "services/backup_daemon/run/run_outcome.h"
#include "services/backup_daemon/run/selection.h"
#include "services/event_watch.h"

namespace services {

/// What a run needs of the daemon. All of it outlives the run.
struct RunHouse {
    event_base* loop = nullptr;
    standalone::Database* memory = nullptr;
    int lanes = 1;      ///< files on their way at one time
    bool check = true;  ///< read every file back
};

/// A run goes on by itself, in the loop, until it tells its end. Destroying it kills its processes;
/// what they had done so far stays and is not sent again by the next run.
class BackupRun {
public:
    struct Listener {
        std::function<void()> connected;  ///< once
        /// Once, and the last that the run does; it may be destroyed then.
        std::function<void(RunOutcome, const std::string& why)> ended;
    };

    BackupRun(const RunHouse& house, TDataBackupConfig task,
              const std::vector<standalone::Channel>& channels, Listener listener);
    ~BackupRun();
    BackupRun(const BackupRun&) = delete;
    BackupRun& operator=(const BackupRun&) = delete;

    /// Begins; the listener hears of everything later, from the loop.
    void begin();

    /// Ends the run as cancelled; the listener hears of it from the loop.
    void cancel();

    /// Looks after processes that hang. Once a second or so.
    void look_after();

    const TDataBackupConfig& task() const { return task_; }
    RunFigures figures();

private:
    /// A day's recordings of one channel.
    struct DayWork {
        std::size_t channel = 0;
        std::string day;
        long long files = 0;  ///< counted among the planned ones so far
        long long bytes = 0;
    };

    /// An order with what has to be known when its report comes.
    struct Item {
        Order order;
        std::size_t day = 0;  ///< place in days_
        DayEntry entry;
        long long done = 0;           ///< bytes of the file that are on the share
        bool begun = false;           ///< "done" has been told once
        std::vector<DayEntry> found;  ///< so far
        int attempts = 0;
        int rooms = 0;  ///< how often room had been made when the order was given
        std::vector<CopiedFile> removed;
    };

    /// A process and what it is at.
    struct Lane {
        std::unique_ptr<Worker> worker;
        std::unique_ptr<EventWatch> watch;
        std::unique_ptr<Item> item;
        bool ready = false;
        std::chrono::seconds heard{};
    };
    using LanePlace = std::list<Lane>::iterator;

    enum class Phase { finding_days, measuring, copying, retention, leftovers, over };

    // Where the run goes on, in backup_run.cpp.
    void advance();
    void next_phase();
    void open_lane();
    bool is_idle() const;
    void hand_out(Lane& lane);
    void note_begin(Item& item);
    void prepare_more();
    void end(RunOutcome outcome, const std::string& why);
    void finish();

    // What lanes report, in run_reports.cpp.
    void hear(LanePlace lane);
    void heard(LanePlace lane, const Report& report);
    void on(Lane& lane, const Ready&);
    void on(Lane& lane, const Days& days);
    void on(Lane& lane, const Entries& entries);
    void on(Lane& lane, const At& at);
    void on(Lane& lane, const Noted& noted);
    void on(Lane& lane, const Copied& copied);
    void on(Lane& lane, const Done&);
    void fail(LanePlace lane, const Failed& failed);
    void lose(LanePlace lane, const std::string& why);
    void put_back(Lane& lane);
    void give_up_file(Lane& lane, const Failed& failed);
    void try_file_again(LanePlace lane, const Failed& failed);
    void make_room(Lane& lane, const std::string& why);

    // What there is to do, in run_plan.cpp.
    void plan_days();
    void plan_measuring();
    void plan_day_listing();
    void plan_retention();
    void plan_leftovers();
    void plan_removal(const std::vector<CopiedFile>& files);
    void take_day(const Item& item);
    bool needs_copy(const DayEntry& entry, const std::string& path, bool asked_share) const;
    std::unique_ptr<Item> copy_item(std::size_t day, const DayEntry& entry,
                                    const std::string& path) const;
    void removed(const Item& item);

    std::string day_folder(const DayWork& work) const;
    std::string path_of(const DayWork& work, const DayEntry& entry) const;
    std::string on_share(const std::string& path) const;
    std::string below_folder(const std::string& path) const;
    void set_done(Item& item, long long bytes);

    RunHouse house_;
    TDataBackupConfig task_;
    Listener listener_;
    Destination destination_;
    CopyStore copies_;
    DayNumber today_;
    Selection selection_;
    std::vector<SelectedChannel> channels_;

    Phase phase_ = Phase::finding_days;
    std::vector<DayWork> days_;
    std::size_t next_day_ = 0;  ///< first day whose files have not been looked up for copying
    bool listing_ = false;      ///< such a look-up is on its way
    bool making_room_ = false;
    int rooms_made_ = 0;
    std::map<std::string, CopiedFile> recorded_;  ///< of the day that is looked up
    std::deque<std::unique_ptr<Item>> ready_;
    std::list<Lane> lanes_;
    bool was_connected_ = false;
    bool probing_ = true;  ///< until a connection stands, one lane tries
    RetryPause retry_;
    std::unique_ptr<EventWatch> pause_;
    std::unique_ptr<EventWatch> ending_;
    bool stopping_ = false;

    long long bytes_planned_ = 0;
    long long bytes_done_ = 0;
    long long bytes_moved_ = 0;
    long long files_planned_ = 0;
    long long files_done_ = 0;
    long long files_failed_ = 0;
    long long files_removed_ = 0;
    int denied_in_a_row_ = 0;
    int losses_ = 0;
    std::string first_failure_;
    std::string message_;
    RateMeter rate_;
};

}  // namespace services
