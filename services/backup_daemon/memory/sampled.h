// What column "sampled" of copied_file says: whether a copy is still to be looked at, and how.
#pragma once

namespace services {

inline constexpr int TO_BE_SAMPLED = 0;  ///< with the next sample of its camera and day
inline constexpr int SETTLED = 1;        ///< not any more
inline constexpr int SPOILT = 2;         ///< found not to be as it was made, and doubted
inline constexpr int DOUBTED = 3;        ///< to be compared with its recording

}  // namespace services
