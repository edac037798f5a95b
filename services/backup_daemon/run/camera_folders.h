// Which folder each camera's copies have in a destination: chosen once, and no other camera's.
#pragma once

#include <vector>

#include "services/backup_daemon/copy/marker.h"
#include "services/backup_daemon/memory/destination_memory.h"
#include "services/backup_daemon/run/selection.h"

namespace services {

/// Gives each channel its camera's folder. A camera that has none recorded gets the one that is
/// told of it, if no other camera has that one; otherwise the folder that the channel wishes for,
/// with more behind the name where a camera has it, is told to have it, or may have copies there.
/// What is chosen is recorded.
/// @param channels  with the names that they wish for, which are safe ones
/// @param told      beside the marker, maybe by a state that this recorder has lost
/// @throws standalone::DatabaseError
void give_folders(std::vector<SelectedChannel>& channels, const CameraFolders& told,
                  DestinationMemory& memory);

/// What is to be told beside the marker: what is recorded, and of other cameras what was told.
/// @throws standalone::DatabaseError
CameraFolders folders_to_tell(CameraFolders told, DestinationMemory& memory);

}  // namespace services
