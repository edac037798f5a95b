// Lists what somebody must look after, and the alerts that have not arrived.
#pragma once

namespace recorderctl {

/// Prints problems, the oldest first, then alerts in the order in which they were made: a row each,
/// or a JSON object with times in seconds since the epoch.
/// @throws Failure when the daemon's database cannot be read
void list_alerts(bool json);

}  // namespace recorderctl
