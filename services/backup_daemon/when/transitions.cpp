// What becomes of a task: its stages, what can happen to it, and the table of what follows.
#include "services/backup_daemon/when/transitions.h"

#include <algorithm>

namespace services {
namespace {

using enum Stage;
using enum Input;

constexpr std::nullopt_t NOTHING = std::nullopt;
constexpr int ENDED = Stored::AS_THE_RUN_ENDED;
constexpr Stored DELETED{Stored::UNCHANGED, Place::deleted};

// The store cannot tell restarting from waiting, nor does it know of interrupted: a new life of the
// daemon takes over neither. A task that is restarting or interrupted when the daemon ends waits.
// clang-format off
constexpr Transition TRANSITIONS[] = {
    {{at_rest}, {start, due}, Step{waiting, {TASK_WAIT, Place::back}}},
    {{at_rest}, {start_first}, Step{waiting, {TASK_WAIT, Place::front}}},
    {{at_rest}, {remove}, Step{at_rest, DELETED, Act::clean_up}},
    {{at_rest}, {stop, make_way, begin, connected, ended, cut_off, take_over}, NOTHING},

    {{waiting}, {start_first}, Step{waiting, {TASK_WAIT, Place::front}}},
    {{waiting}, {stop}, Step{at_rest, {TASK_CANCEL, Place::none}}},
    {{waiting}, {begin},
     Step{starting, {TASK_PREPARE_START, Place::none, Stamp::start}, Act::begin_run}},
    {{waiting}, {take_over}, Step{waiting, {TASK_WAIT}}},
    {{interrupted}, {start_first}, Step{interrupted, {TASK_WAIT, Place::front}}},
    {{interrupted}, {stop}, Step{at_rest, {TASK_CANCEL, Place::none, Stamp::end}}},
    {{interrupted}, {begin}, Step{starting, {TASK_PREPARE_START, Place::none}, Act::resume_run}},
    {{interrupted}, {take_over}, NOTHING},
    {{waiting, interrupted}, {remove}, Step{at_rest, DELETED, Act::clean_up}},
    {{waiting, interrupted}, {start, due, make_way, connected, ended, cut_off}, NOTHING},

    {{starting}, {connected}, Step{running, {TASK_RUNNING}}},
    {{running}, {connected}, NOTHING},
    {{starting, running}, {stop, make_way}, Step{stopping, {TASK_PREPARE_STOP}, Act::cancel_run}},
    {{starting, running}, {start_first},
     Step{restarting, {TASK_WAIT, Place::front}, Act::cancel_run}},
    {{starting, running}, {remove}, Step{stopping, DELETED, Act::cancel_and_clean_up}},
    {{starting, running, stopping}, {ended}, Step{at_rest, {ENDED, Place::same, Stamp::end}}},
    {{starting, running}, {cut_off, take_over}, Step{interrupted, {TASK_WAIT, Place::front}}},
    {{starting, running}, {start, due, begin}, NOTHING},

    {{stopping}, {start}, Step{restarting, {TASK_WAIT, Place::back}}},
    {{restarting}, {start}, NOTHING},
    {{stopping, restarting}, {start_first}, Step{restarting, {TASK_WAIT, Place::front}}},
    {{stopping}, {stop}, NOTHING},
    {{restarting}, {stop}, Step{stopping, {TASK_PREPARE_STOP, Place::none}}},
    {{stopping, restarting}, {remove}, Step{stopping, DELETED, Act::clean_up}},
    {{restarting}, {ended, cut_off}, Step{waiting, {TASK_WAIT, Place::same, Stamp::end}}},
    {{stopping}, {cut_off, take_over}, Step{at_rest, {TASK_CANCEL, Place::same, Stamp::end}}},
    {{restarting}, {take_over}, Step{waiting, {TASK_WAIT}}},
    {{stopping, restarting}, {due, make_way, begin, connected}, NOTHING},
};
// clang-format on

template <typename Kind>
constexpr bool holds(std::initializer_list<Kind> list, Kind kind) {
    return std::find(list.begin(), list.end(), kind) != list.end();
}

constexpr bool is_row_of(const Transition& row, Stage stage, Input input) {
    return holds(row.stages, stage) && holds(row.inputs, input);
}

constexpr bool each_input_has_one_row_in_each_stage() {
    for (auto stage = at_rest; stage <= restarting; stage = Stage(int(stage) + 1))
        for (auto input = start; input <= take_over; input = Input(int(input) + 1)) {
            const auto is_row = [&](const auto& row) { return is_row_of(row, stage, input); };
            if (std::ranges::count_if(TRANSITIONS, is_row) != 1) return false;
        }
    return true;
}

static_assert(each_input_has_one_row_in_each_stage());

}  // namespace

std::span<const Transition> transitions() {
    return TRANSITIONS;
}

const std::optional<Step>& step_of(Stage stage, Input input) {
    return std::ranges::find_if(TRANSITIONS,
                                [&](const auto& row) { return is_row_of(row, stage, input); })
        ->step;
}

Stage stored_stage(int status, bool has_place) {
    if (status == TASK_PREPARE_START || status == TASK_RUNNING) return running;
    if (has_place) return waiting;
    // A task that waits without a place was about to lose its status too.
    return status == TASK_PREPARE_STOP || status == TASK_WAIT ? stopping : at_rest;
}

}  // namespace services
