// What becomes of a task: its stages, what can happen to it, and the table of what follows.
#pragma once

#include <initializer_list>
#include <optional>
#include <span>

#include "backup/task_record.h"

namespace services {

/// Where a task stands. Those with a run come last.
enum class Stage {
    at_rest,      ///< neither waits nor runs
    waiting,      ///< has a place in the queue
    interrupted,  ///< has a place in the queue, to go on with the run that was cut off
    starting,     ///< its run has not connected yet
    running,
    stopping,    ///< its run has been told to end
    restarting,  ///< the same, and the task has a place in the queue
};

/// What can happen to a task.
enum class Input {
    start,        ///< it is to run when its turn comes
    start_first,  ///< it is to run in the place of what runs
    due,          ///< its schedule has come due
    stop,         ///< it is not to run
    make_way,     ///< whatever runs is to end
    remove,       ///< it is deleted, or is no longer stored
    begin,        ///< its turn has come
    connected,    ///< the server has let its run in
    ended,        ///< its run has ended
    cut_off,      ///< its run has ended early, and is to be taken up again
    take_over,    ///< a new life of the daemon finds it in the store
};

/// What becomes of a task's place in the queue.
enum class Place {
    same,
    front,
    back,
    none,
    deleted,  ///< the task itself is deleted, and its place with it
};

/// Which of a task's times becomes the present one.
enum class Stamp { none, start, end };

/// What is stored of a task, all or nothing.
struct Stored {
    static constexpr int UNCHANGED = -1;
    static constexpr int AS_THE_RUN_ENDED = -2;

    int status = UNCHANGED;  ///< row of strStatus_Arr, or one of the two above
    Place place = Place::same;
    Stamp stamp = Stamp::none;
};

/// What is done once it is stored.
enum class Act {
    nothing,
    begin_run,
    resume_run,
    cancel_run,
    clean_up,  ///< what the deleted task has left on the share
    cancel_and_clean_up,
};

/// What follows an input.
struct Step {
    Stage next;
    Stored stored;
    Act act = Act::nothing;
};

/// A row of the table: in any of the stages, any of the inputs has this step; without one the input
/// changes nothing.
struct Transition {
    std::initializer_list<Stage> stages;
    std::initializer_list<Input> inputs;
    std::optional<Step> step;
};

/// The table; docs/backup-daemon.md shows it. Each input has one row in each stage.
std::span<const Transition> transitions();

/// What follows an input; nothing when it changes nothing.
const std::optional<Step>& step_of(Stage stage, Input input);

/// Where a task stands by what is stored of it, at the beginning of a life of the daemon.
/// @param status row of strStatus_Arr
Stage stored_stage(int status, bool has_place);

/// Whether a task has a run that has not ended.
constexpr bool has_run(Stage stage) {
    return stage >= Stage::starting;
}

}  // namespace services
