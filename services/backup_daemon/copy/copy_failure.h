// Everything that can go wrong with a copy: one closed list, from the share to the run.
#pragma once

#include <stdexcept>
#include <string>

namespace services {

/// What a failure means for the run. The first six come from the share or the way to it, the others
/// concern one file and leave the share as good as it was. The numbers go over the wire between the
/// daemon and its copying processes, which are always of one build.
enum class FailureKind {
    lost,      ///< the connection is gone or cannot be made: a new one helps, later
    refused,   ///< wrong user, password or share: neither a new attempt nor a new connection helps
    unknown,   ///< nobody knows the server's name: as refused, or as lost where it was known before
    full,      ///< no room, or over quota: the same order helps once room has been made
    denied,    ///< this file or folder must not be touched so: trying again does not help
    other,     ///< nobody can tell: a new attempt over a new connection may help
    gone,      ///< the source is not there any more: trying again does not help
    source,    ///< the source cannot be read or has become shorter: the next run may find it whole
    occupied,  ///< another file, not of this recorder, has the target's name, and must stay
    mismatch,  ///< what the share gives back is not what was written, twice: not in this run
};

/// The last of the list, for those who read its numbers from outside.
inline constexpr FailureKind LAST_FAILURE_KIND = FailureKind::mismatch;

/// Whether the connection is of no further use to anybody. The others leave it standing.
constexpr bool ends_connection(FailureKind kind) {
    switch (kind) {
        case FailureKind::lost:
        case FailureKind::refused:
        case FailureKind::unknown:
            return true;
        case FailureKind::full:
        case FailureKind::denied:
        case FailureKind::other:
        case FailureKind::gone:
        case FailureKind::source:
        case FailureKind::occupied:
        case FailureKind::mismatch:
            break;
    }
    return false;
}

/// A call on a share, or the copy of a file, failed. what() names the file and carries the words of
/// the server or the system.
class CopyFailure : public std::runtime_error {
public:
    CopyFailure(FailureKind failure, const std::string& message)
        : std::runtime_error(message), kind(failure) {}
    FailureKind kind;
};

}  // namespace services
