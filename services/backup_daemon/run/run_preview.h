// What a run would do if it began now, and whether there is room for it.
#pragma once

#include <optional>
#include <string>

#include "services/backup_daemon/copy/share.h"
#include "services/backup_daemon/memory/copy_memory.h"

namespace services {

struct RunPreview {
    FileAmount to_copy;
    FileAmount to_compare;  ///< doubted copies; what is not equal is copied, too
    long long cameras = 0;  ///< that have files to copy
    long long days = 0;     ///< the same
    std::string first_day;  ///< of them; "" when there is nothing to copy
    std::string last_day;
    FileAmount too_old;             ///< what retention would remove
    std::string why_copies_stay;    ///< why neither age nor room would remove any; mostly ""
    std::optional<ShareRoom> room;  ///< nothing when the server does not tell
    long long can_make_way = 0;     ///< bytes that a full share would lose of this task's copies
    bool fits = true;               ///< as far as can be told
    std::string failure;            ///< what could not be read; mostly ""
};

}  // namespace services
