// What is remembered of the place that a task's address leads to.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

namespace services {

/// A destination, before anybody has looked at it.
struct KnownPlace {
    std::string id;         ///< a new one, at random, when the address has never led anywhere
    bool is_known = false;  ///< the address has led there
    bool marked = false;    ///< our marker was there
    bool own = false;       ///< it lies in a folder of this recorder's own, below the address's
    std::string fresh{};    ///< an identifier that no destination has, at random
};

/// A destination, as it was found.
struct FoundDestination {
    std::string id;
    bool marked = false;  ///< our marker has been seen there
    bool own = false;     ///< it lies in a folder of this recorder's own, below the address's
};

/// Room on a share, in bytes.
struct KnownRoom {
    long long free = 0;
    long long total = 0;
};

/// The memory of one address. Any call may throw standalone::DatabaseError.
class DestinationMemory {
public:
    virtual ~DestinationMemory() = default;

    /// Where the address led when it was last settled.
    virtual KnownPlace known() = 0;

    /// From now on the address leads to this destination, and all that follows is about that one.
    /// What is recorded of a place without a marker that the address led to before becomes the
    /// destination's, if that is the same folder.
    virtual void settle(const FoundDestination& found) = 0;

    /// The folder of each camera, by its guid.
    virtual std::map<std::string, std::string> camera_folders() = 0;

    /// The folders, without those below them, that recorded copies lie in.
    virtual std::set<std::string> folders_of_copies() = 0;

    /// Records a camera's folder, for good.
    /// @param guid   of a camera that has none yet
    /// @param folded the folder's name as a server sees it that does not tell upper case from lower
    ///               case; no other camera's
    virtual void add_camera_folder(const std::string& guid, const std::string& folder,
                                   const std::string& folded) = 0;

    /// Records what the share has told of its room, as of now; nothing: it does not tell.
    /// @param share server, port and share in one text: other addresses on it have the same room
    virtual void note_room(const std::string& share, const std::optional<KnownRoom>& room) = 0;
};

}  // namespace services
