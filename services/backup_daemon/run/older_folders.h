// The cameras' folders as versions named them that kept no record of them.
#pragma once

#include <vector>

#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/database.h"

namespace services {

/// Records, once for each address that such a version has copied to, the folders of those cameras
/// that have copies under the name that it gave them. A name that it gave to more than one camera
/// is nobody's from then on.
/// @param memory the daemon's own database
/// @throws standalone::DatabaseError
void take_over_folders(standalone::Database& memory,
                       const std::vector<standalone::Channel>& channels);

}  // namespace services
