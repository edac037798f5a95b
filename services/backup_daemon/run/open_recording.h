// Opens a recording for a process that may not do so itself.
#pragma once

#include <string>

#include "platform/standalone/store/file_handle.h"

namespace services {

/// A recording with what it was when it was opened.
struct OpenRecording {
    standalone::FileHandle file;
    long long size = 0;         ///< bytes
    long long modified_ns = 0;  ///< last write, nanoseconds since the epoch
};

/// Opens a regular file for reading. Below the channel's folder no symbolic link is followed, and
/// nothing leads out of it. A file is left alone that the owner of the folder in which it lies
/// could not read, as owner, by the folder's group or as anybody: whoever may write there shall not
/// have others' files read for him.
/// @param recordings the channel's folder, where it is configured to be
/// @param path of the recording below it
/// @throws CopyFailure gone: nothing has that name; source: it cannot be opened, or is no file
OpenRecording open_recording(const std::string& recordings, const std::string& path);

}  // namespace services
