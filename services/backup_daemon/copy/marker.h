// The marker that says on a share whose folder it lies in, and the list of cameras beside it.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace services {

/// The folder of the marker, in the folder that it marks. It appears whole, or not at all: no
/// server gives one folder's name to a second one.
inline constexpr char MARKER_FOLDER[] = ".recording-backup";

/// The marker's file in it, which never changes.
inline constexpr char MARKER_FILE[] = "recorder.json";

/// What a marker says.
struct Marker {
    std::string recorder;     ///< identity of the recorder that alone writes here
    std::string destination;  ///< what that recorder knows this place by
};

/// The folder that each camera's copies lie in, by the camera's guid.
using CameraFolders = std::map<std::string, std::string>;

std::string marker_path(const std::string& folder);
std::string cameras_path(const std::string& folder);

/// As much of a recorder's identity as stands in names.
std::string short_identity(const std::string& recorder);

/// The folder that a recorder has below one that another recorder has marked.
std::string own_folder(const std::string& recorder);

/// Whether no camera may have a folder of this name: it is a marker's, or may be a recorder's own.
bool is_reserved(const std::string& name);

std::string marker_text(const Marker& marker);

/// Reads a marker as a strange server gives it. Members that are not known here are passed over.
/// @return nothing when it is none
std::optional<Marker> read_marker(const std::string& text);

/// @param most bytes; cameras that have no room any more are left out
std::string cameras_text(const CameraFolders& cameras, std::size_t most);

/// Reads such a list as a strange server gives it; what is no camera with a folder that a camera
/// may have is passed over.
CameraFolders read_cameras(const std::string& text);

}  // namespace services
