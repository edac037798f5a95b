// What a run does next: reports in, orders out. No process, no socket, no clock.
#pragma once

#include <array>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "services/backup_daemon/run/lane_pool.h"
#include "services/backup_daemon/run/run_preview.h"
#include "services/backup_daemon/run/run_work.h"
#include "services/backup_daemon/tell/run_events.h"

namespace services {

/// Something that people should read in the log.
struct RunNote {
    RunEvent event;
    std::string detail;
};

/// What a failed order asks of whoever carries the plan out.
struct FailureStep {
    enum class Kind {
        go_on,         ///< nothing
        replace_lane,  ///< drop the lane: a fresh one may fare better
        lose_lane,     ///< the same, after a pause: it may be the connection
        end_run,       ///< the run has failed
    };
    Kind kind = Kind::go_on;
    std::string why;  ///< of lose_lane and end_run
};

/// A run as a plan, phase by phase: find the place, find the days, read a sample of the copies made
/// since the last one, measure the days, see whether there
/// is room, copy day by day, the oldest first, remove what is too old, remove temporary files that
/// nothing will continue, ask how much room is left. An order that was given waits for its lane's
/// reports; of a lane that is lost it goes back into the plan, but for that last question, which no
/// run fails of.
///
/// A run that could not read all recordings or copy all files removes no copy: neither those that
/// are too old nor, to make room, the oldest ones. What it lacks may be all that there is left. No
/// more does one whose date is not to be believed (date_trust.h).
///
/// A plan whose goal is a preview asks the share what it has while it measures, and is over when it
/// knows what there is to do. It gives no order that changes anything and writes nothing down.
///
/// When a copy of the sample is not as it was made, all copies of its camera and day are compared
/// with their recordings, as far as the run selects them. As long as it is not made anew no copy is
/// removed, and one that is not counts as a failed file. What keeps a copy from being read keeps
/// nothing from being copied.
///
/// A plan whose goal is a clean-up finds the place, without making one, and removes temporary
/// files. Each run removes those of deleted tasks, too, as far as the share lets it.
///
/// A file that finds the share full ends the copying, unless room can be made for it. Where there
/// are other unfinished ones, or were while it was sent, all of them are sent one by one from then
/// on; of what was begun and has no room nothing stays on the share.
///
/// Any call may throw standalone::DatabaseError. Nothing but the memory has changed then, and the
/// memory only towards what the call is for: the same call, with the same report, may be made again
/// until it succeeds. A lane need not be lost for it.
class RunPlan {
public:
    /// `places`, `memory` and `tally` outlive the plan. What cannot be read counts as one failed
    /// file: a channel that there is not, a channel's folder, a day. Without any channel there is
    /// nothing to do.
    RunPlan(RunGoal goal, DestinationMemory& places, CopyMemory& memory, RunTally& tally);
    RunPlan(const RunPlan&) = delete;
    RunPlan& operator=(const RunPlan&) = delete;

    const RunGoal& goal() const { return goal_; }

    /// Looks for more to do, and goes on to the next phase when nothing of one is left. Before
    /// anything is asked of the plan, and after every report.
    void settle();

    /// Nothing is left to do.
    bool is_over() const { return phase_ == Phase::over; }

    /// Why the run has failed; "" when it has not, as far as it has come.
    std::string failure() const { return stopped_.empty() ? tally_.failure() : stopped_; }

    /// How many orders wait for a lane.
    std::ptrdiff_t waiting_orders() const { return std::ssize(ready_); }

    /// The order that a lane without one shall carry out; nothing when there is none for now.
    std::optional<Order> next(LaneId lane);

    /// Whether a lane has an order.
    bool is_busy(LaneId lane) const { return given_.contains(lane); }

    /// Takes a lane's report, any but Ready and Failed.
    /// @return false when it answers nothing that the lane was asked
    bool take(LaneId lane, const Report& report);

    /// A lane could not carry its order out, or could not connect.
    FailureStep fail(LaneId lane, const Failed& failed);

    /// A lane's process has ended by itself. That may be its order's doing, so it counts among the
    /// order's attempts.
    FailureStep end_process(LaneId lane, const std::string& why);

    /// A lane is gone; its order, if it had one, waits for another.
    void lose(LaneId lane);

    /// What the run would do: when a plan whose goal is a preview is over.
    RunPreview preview();

    /// What people should read of, since the last call.
    std::vector<RunNote> take_notes();

private:
    enum class Phase {
        finding_place,
        finding_days,
        sampling,
        measuring,
        weighing,
        copying,
        retention,
        leftovers,
        noting_room,
        over
    };

    /// There may be half a million of them.
    struct Day {
        const SelectedChannel* channel;
        std::array<char, 10> name;        ///< "2024-03-01"
        bool unread = false;              ///< could not be listed, and counts as failed
        bool empty = false;               ///< found so beyond another day, ...
        standalone::FolderStamp stamp{};  ///< ... when its folder had this stamp
        FileAmount to_copy{};             ///< counted among the planned ones so far, ...
        FileAmount to_compare{};          ///< ... and so are these
    };

    struct RoomMaking {
        bool in_the_making = false;      ///< nothing else goes on then
        std::optional<ProveRoom> proof;  ///< what is to be asked when the copies have gone
        bool full_was_told = false;
        bool one_by_one = false;  ///< files on their way together have filled the share
    };

    struct Counts {
        long long removed = 0;   ///< copies that retention has removed
        long long not_ours = 0;  ///< that were to go, and another file stood in their place
        long long spoilt = 0;    ///< of the sample, that are not as they were made
        int denied_in_a_row = 0;
    };

    /// Reading back what earlier runs have copied.
    struct Sampling {
        std::string folder;            ///< whose sample is being read; "": none
        std::set<std::string> spoilt;  ///< paths of copies that are still to be made anew
        bool was_any = false;          ///< the memory has been told of some, or told some
        long long read = 0;            ///< bytes that this run has asked for
    };

    enum class Answer { nonsense, part, whole };

    // Phases, in run_plan.cpp.
    bool is_idle() const { return ready_.empty() && given_.empty(); }
    std::string why_copies_stay() const;
    void enter_next_phase();
    void judge_the_date();
    bool plan_sample();
    bool plan_half_removed();
    bool plan_retention();
    void finish_retention();
    std::string retention_text();
    void plan_leftovers();
    void finish_leftovers();
    Order order_of(Work& work);
    void resume(CopyFile& copy);

    // Days, in run_plan_days.cpp.
    void plan_finding_days();
    void measure_ahead();
    void sort_days();
    void look_ahead();
    std::size_t end_of_row(std::size_t day) const;
    ListDay order_of(LookAtDay& look) const;
    ChannelDay where(std::size_t day) const;
    std::size_t place_of(const SelectedChannel* channel) const;
    std::string& disk_of(const SelectedChannel* channel) const;
    Answer answer(FindDays& find, const Days& days);
    Answer answer(LookAtDay& look, const Entries& entries);
    Answer answer(LookAtDay& look, const At&);
    Answer answer(LookAtDay& look, const Done&);
    Answer answer(SeekRecordings& seek, const Days& days);
    bool is_there(const Day& day, const std::string& disk);
    void give_up_doubles(LookAtDay& look);
    void count_day(Day& day, const FileAmount& to_copy, const FileAmount& to_compare);
    void give_up_day(std::size_t day, const std::string& why);
    void pass_row(const LookAtDay& look);
    void note_empty(const LookAtDay& look);

    // Reports, in run_plan_reports.cpp. What no other function takes is nonsense.
    template <typename What, typename Said>
    Answer answer(What&, const Said&) {
        return Answer::nonsense;
    }
    Answer answer(SeekPlace& seek, const FoundPlace& place);
    Answer answer(TellCameras& tell, const Done&);
    Answer answer(CopyFile& copy, const At& at);
    Answer answer(CopyFile& copy, const Noted& noted);
    Answer answer(CopyFile& copy, const Copied& copied);
    Answer answer(CheckCopy& check, const At&);
    Answer answer(CheckCopy& check, const CopySeen& seen);
    void tell_cameras(const FoundPlace& place);
    void give_up_source(const Work& work, const std::string& why);
    void give_up_file(const FileCount& file, const std::string& why, const std::string& path = "");
    void find_spoilt(const CheckCopy& check, const std::string& why);
    FailureStep fail_to_check(LaneId lane, const Failed& failed);
    static bool may_be_tried_again(Work& work);
    void give_up_spoilt();
    FailureStep fail_to_connect(const Failed& failed) const;
    FailureStep try_again(LaneId lane, const Failed& failed);
    FailureStep give_up(LaneId lane, const Failed& failed);
    void stop(const std::string& why);

    // A file that finds the share full, in run_plan_full.cpp.
    FailureStep find_full(LaneId lane, const Failed& failed);
    std::string why_nothing_makes_way() const;
    bool has_older_copies(const CopyFile& copy);
    void take_back_room();
    bool room_is_moving() const;
    bool may_go_now(const Work& work) const;
    bool others_take_room(const CopyFile& copy);
    bool is_given(const std::string& path) const;
    void send_one_by_one(LaneId lane);
    void note_others_went();
    void tell_full(const std::string& why);

    // Room, in run_plan_room.cpp.
    Answer answer(WeighRun&, const Room& found);
    long long bytes_to_copy() const;
    Answer answer(SeekRoom& seek, const Room& found);
    Answer answer(ProveRoom& proof, const Room& found);
    Answer answer(NoteRoom&, const Room& found);
    void note_room(const std::optional<ShareRoom>& room);
    void doubt_full(const SeekRoom& seek, const std::optional<ShareRoom>& room);
    void make_room(const SeekRoom& seek, const std::optional<ShareRoom>& room);
    void prove_room(long long removed);
    static long long awaited_room(const ProveRoom& proof);
    std::deque<Work>::iterator waiting_file(const std::string& path);
    void give_up_for_room(const std::string& path, const std::string& why);

    // Copies that have gone, in run_plan_removal.cpp.
    Answer answer(RemoveCopies& removal, const At&);
    Answer answer(RemoveCopies& removal, const Removed& removed);
    void note_fate(const CopiedFile& copy, Fate fate);
    void finish_removal(const CopiedFile& copy, RemoveCopies::Why why);

    RunGoal goal_;      ///< but for the channels' folders as it was given
    ShareNames names_;  ///< of the place where copies go, once it is known
    DestinationMemory& places_;
    CopyMemory& memory_;
    RunTally& tally_;
    Phase phase_ = Phase::finding_place;
    std::vector<Day> days_;
    std::size_t next_day_ = 0;             ///< first day that the phase has not looked at
    std::size_t likely_empty_ = 0;         ///< days in a row that were, as far as was measured last
    standalone::Moment measured_since_{};  ///< before the first stamp of an empty one
    std::deque<Work> ready_;
    std::map<LaneId, Work> given_;
    std::vector<RunNote> notes_;
    RoomMaking room_;
    Sampling sampling_;
    bool was_connected_ = false;  ///< a lane was ready for an order
    Counts counts_;
    /// Of the goal's channels, in their order.
    std::shared_ptr<std::vector<ChannelFolder>> folders_;
    std::string newest_recording_;     ///< its day; "": none was found
    std::string date_doubt_;           ///< "" when the date is believed
    std::set<std::string> kept_days_;  ///< that retention leaves alone: each camera's newest
    RunPreview weighed_;               ///< room and what may make way, once they were asked for
    std::string stopped_;              ///< why nothing more is copied; "" when nothing keeps it
};

}  // namespace services
