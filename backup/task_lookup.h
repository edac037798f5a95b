// Finds a stored task's name or status by its identifier.
#pragma once

#include <string>

// Both read the stored tasks afresh and compare identifiers byte for byte; of two tasks with one
// identifier the first in store order counts.
//
// task_id NUL-terminated; null counts as ""
// the text is replaced when the task is found and unchanged otherwise
// return  0, CGI_TASK_NOT_FOUND, or the configuration store's status

int get_task_name_by_task_id(const char* task_id, std::string& name);

/// The status is a row of strStatus_Arr, "" for an index outside it.
int get_task_status_by_task_id(const char* task_id, std::string& status);
