// Moves the daemon's rows out of the configuration database, where earlier versions kept them.
#pragma once

#include <string>

namespace services {

/// Takes next runs, progress, copies and checkpoints over from a configuration database that still
/// has them, and drops them there. Without them nothing happens, so it is called at every start.
///
/// Two databases cannot be changed as one in write-ahead mode (sqlite.org/lang_attach.html), so the
/// rows are on disk in their new place before the old tables go, and a row that is there already
/// stays: killed at any point, the next call completes it. Nobody else may use the old tables
/// meanwhile, so the caller has the daemon's ports.
/// @param memory_path the daemon's own database, which open_memory() has made
/// @param config_path the configuration database
/// @throws standalone::DatabaseError; nothing is lost then
void take_over_from_config(const std::string& memory_path, const std::string& config_path);

}  // namespace services
