// The marker that says on a share whose folder it lies in, and the list of cameras beside it.
#include "services/backup_daemon/copy/marker.h"

#include <json-c/json.h>

#include "platform/standalone/store/strict_json.h"
#include "services/backup_daemon/copy/share_path.h"

namespace services {
namespace {

constexpr std::size_t DIGITS = 32;
constexpr std::size_t SHORT_DIGITS = 8;
constexpr char OWN_FOLDER[] = "Recorder ";

bool is_hexadecimal(std::string_view text) {
    return text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

/// A member that is a text; "" when there is none.
std::string text_of(json_object* object, const char* key) {
    json_object* member = nullptr;
    json_object_object_get_ex(object, key, &member);
    if (!json_object_is_type(member, json_type_string)) return "";
    return {json_object_get_string(member),
            static_cast<std::size_t>(json_object_get_string_len(member))};
}

std::string identifier_of(json_object* object, const char* key) {
    std::string text = text_of(object, key);
    return text.size() == DIGITS && is_hexadecimal(text) ? text : "";
}

JsonPtr new_camera(const std::string& guid, const std::string& folder) {
    JsonPtr camera(json_object_new_object());
    json_object_object_add(camera.get(), "guid", standalone::new_json_text(guid));
    json_object_object_add(camera.get(), "folder", standalone::new_json_text(folder));
    return camera;
}

}  // namespace

std::string marker_path(const std::string& folder) {
    return join_path(join_path(folder, MARKER_FOLDER), MARKER_FILE);
}

std::string cameras_path(const std::string& folder) {
    return join_path(join_path(folder, MARKER_FOLDER), "cameras.json");
}

std::string short_identity(const std::string& recorder) {
    return recorder.substr(0, SHORT_DIGITS);
}

std::string own_folder(const std::string& recorder) {
    return OWN_FOLDER + short_identity(recorder);
}

bool is_reserved(const std::string& name) {
    const std::string small = folded(name);
    const std::string own = folded(OWN_FOLDER);
    if (small.starts_with(MARKER_FOLDER)) return true;
    return small.starts_with(own) && small.size() == own.size() + SHORT_DIGITS &&
           is_hexadecimal(std::string_view(small).substr(own.size()));
}

std::string marker_text(const Marker& marker) {
    const JsonPtr object(json_object_new_object());
    json_object_object_add(object.get(), "recorder", standalone::new_json_text(marker.recorder));
    json_object_object_add(object.get(), "destination",
                           standalone::new_json_text(marker.destination));
    return standalone::print_json(object.get()) + "\n";
}

std::optional<Marker> read_marker(const std::string& text) {
    const JsonPtr object = standalone::parse_strict_object(text);
    Marker marker{identifier_of(object.get(), "recorder"),
                  identifier_of(object.get(), "destination")};
    if (marker.recorder.empty() || marker.destination.empty()) return {};
    return marker;
}

std::string cameras_text(const CameraFolders& cameras, std::size_t most) {
    std::string text;
    for (const auto& [guid, folder] : cameras) {
        const std::string camera = standalone::print_json(new_camera(guid, folder).get());
        if (text.size() + camera.size() + sizeof "{\"cameras\":[,\n]}\n" > most) break;
        text += (text.empty() ? "" : ",\n") + camera;
    }
    return "{\"cameras\":[" + text + "]}\n";
}

CameraFolders read_cameras(const std::string& text) {
    CameraFolders cameras;
    const JsonPtr object = standalone::parse_strict_object(text);
    json_object* list = nullptr;
    json_object_object_get_ex(object.get(), "cameras", &list);
    if (!json_object_is_type(list, json_type_array)) return cameras;
    for (std::size_t at = 0; at < json_object_array_length(list); ++at) {
        json_object* camera = json_object_array_get_idx(list, at);
        const std::string folder = text_of(camera, "folder");
        if (folder.empty() || safe_name(folder) != folder || is_reserved(folder)) continue;
        cameras.emplace(text_of(camera, "guid"), folder);
    }
    return cameras;
}

}  // namespace services
