// How far the tasks' last runs have come, as the daemon has written it down.
#pragma once

namespace recorderctl {

/// Prints a row, or a JSON object, for each task that has ever run.
/// @throws Failure when the daemon has never made its database, or it is of another schema
void print_progress(bool json);

}  // namespace recorderctl
