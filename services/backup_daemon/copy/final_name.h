// The last step of a copy: its name, which is taken from nobody.
#pragma once

#include <functional>
#include <string>

#include "services/backup_daemon/copy/share.h"

namespace services {

/// A whole temporary file and the name that it is to have.
struct Naming {
    std::string temporary;
    std::string target;
    std::string claim;  ///< content by which this recorder knows its claims; never empty
};

/// Takes a name that is free. The library's renaming does not: what a server refuses to replace, it
/// deletes and renames again, and a file that somebody has just put there would be gone. So the
/// name is claimed first, which can only succeed where there is nothing, and what the library
/// deletes is the claim.
/// @return false: something has the name, and nothing was done
/// @throws CopyFailure
bool take_free_name(Share& share, const Naming& naming);

/// Takes the name of a file that may be replaced. One without content may be what a cut left, or a
/// claim of somebody else's that gets its line now: who replaced that would delete the copy which
/// takes the claim's place. So it has to stay as it is for a while; as has one with zeros in the
/// place of bytes, which some programs take a file's room with before they write it.
/// @param seen      how it was found when that was decided
/// @param has_zeros of a file with zeros, whether its content is still what was decided on: a
///                  server may tell size and time as they were while somebody who has the file
///                  open fills it. Null for one without
/// @return false: it is not so any more, and nothing was done
/// @throws CopyFailure
bool take_over_name(Share& share, const Naming& naming, const FileState& seen,
                    const std::function<bool()>& has_zeros = nullptr);

/// Whether a file of so many bytes is what was written as a claim, or its beginning, which a cut
/// left.
/// @throws CopyFailure
bool is_claim(ShareFile& file, long long size, const std::string& claim);

/// Whether it is what a server left of one that lost its power.
/// @throws CopyFailure
bool is_claim_remnant(ShareFile& file, long long size, const std::string& claim);

}  // namespace services
