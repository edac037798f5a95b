// How many days of a row, one after the other, have an empty folder.
#pragma once

#include <chrono>
#include <vector>

#include "services/backup_daemon/run/lane_messages.h"

namespace services {

// The loop waits for the disk meanwhile. A disk that has to be moved for each folder gets no
// further than two or three in that time, one whose folders are in memory some thousands.
inline constexpr std::chrono::milliseconds ROW_STEP(20);

/// The stamps of those days beyond, from the first one on, whose folders lie on their channel's
/// disk and have nothing in them. After `step` it looks at no further one.
/// @param looked_at a moment that is not later than the call
std::vector<standalone::FolderStamp> empty_row(const ListDay& order,
                                               const standalone::Moment& looked_at,
                                               std::chrono::milliseconds step = ROW_STEP);

}  // namespace services
