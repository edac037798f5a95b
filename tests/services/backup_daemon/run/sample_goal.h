// The goal that tests of runs begin with: two cameras, one month, everything of it.
#pragma once

#include "services/backup_daemon/run/run_goal.h"

inline services::RunGoal sample_goal() {
    services::RunGoal goal;
    goal.task_id = "7";
    goal.recorder = "0123456789abcdef0123456789abcdef";
    goal.destination = {.server = "nas", .port = 445, .share = "backup", .folder = "store"};
    goal.selection = {
        .first_day = "2024-03-01", .last_day = "2024-03-31", .normal = true, .alarm = true};
    goal.channels = {{.index = 1, .guid = "g1", .recordings = "/rec/door", .folder = "Door"},
                     {.index = 2, .guid = "g2", .recordings = "/rec/yard", .folder = "Yard"}};
    return goal;
}
