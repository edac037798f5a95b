// Which of a channel's days have an empty folder: the cheapest look at a day that there is.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "platform/standalone/store/file_handle.h"
#include "platform/standalone/store/folder_stamp.h"

namespace standalone {

/// A channel's folder, held open for as long as its days are looked at.
class EmptyDays {
public:
    /// @param channel the channel's folder; one that cannot be opened has no empty day
    explicit EmptyDays(const std::string& channel);

    /// The channel's folder itself; all zero when it cannot be opened.
    const struct stat& channel() const { return found_; }

    /// Whether there is a folder of that day, not a link to one, with nothing in it. Whatever keeps
    /// it from being read to its end makes it none.
    /// @param looked_at a moment that is not later than the call
    /// @return its stamp, which may be one that tells nothing; nothing when it is not empty
    std::optional<FolderStamp> look(const std::string& day, const Moment& looked_at) const;

    /// Whether the folder of a day that was found empty has the stamp that it had then.
    bool is_as_it_was(const std::string& day, const FolderStamp& stamp) const {
        return has_stamp(folder_.get(), day, stamp);
    }

private:
    FileHandle folder_;
    struct stat found_ {};
    bool keeps_change_times_ = false;
};

}  // namespace standalone
