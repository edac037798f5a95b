// The folders below a channel's: one a day, and alarm/ in it.
#pragma once

#include <fcntl.h>

#include <string>
#include <vector>

#include "platform/standalone/store/folder_reader.h"
#include "platform/standalone/store/recording_name.h"

namespace standalone {

inline constexpr char ALARM_FOLDER[] = "alarm";

/// The names of a channel's day folders.
struct DayNames {
    std::vector<std::string> begun;  ///< days that have begun, oldest first
    std::string next;                ///< the first one that has not; "" without one
};

/// Reads a channel's folder to its end; what goes wrong on the way stays in folder.error.
DayNames day_names(Folder& folder);

/// A recording in an open folder.
struct Recording {
    int folder;         ///< descriptor
    const char* name;   ///< the file's name in it
    int second_of_day;  ///< local start time, as the name has it
};

/// Calls `visit` with each recording in a folder, if there is a folder.
template <typename Visit>
void visit_recordings(Folder& folder, Visit visit) {
    if (!folder) return;
    while (const dirent* entry = next_entry(folder)) {
        const int second = start_second(entry->d_name);
        if (second >= 0 && has_kind(folder, *entry, DT_REG))
            visit(Recording{folder.descriptor(), entry->d_name, second});
    }
}

/// One day's two folders, either null when it is not there.
struct DayFolders {
    Folder normal;
    Folder alarm;

    /// @param channel the channel's open folder
    DayFolders(const Folder& channel, const std::string& day)
        : normal(open_folder(channel.descriptor(), day.c_str(), O_NOFOLLOW)) {
        if (normal) alarm = open_folder(normal.descriptor(), ALARM_FOLDER, O_NOFOLLOW);
    }
};

}  // namespace standalone
