// The description that format "ostra" puts beside a copy.
#include "services/backup_daemon/copy/side_file.h"

#include "platform/standalone/store/strict_json.h"
#include "services/http_service.h"

namespace services {

std::string side_file_path(const std::string& path) {
    return path + ".json";
}

std::string side_file_text(const SideFile& side_file, const CopyResult& copy) {
    const standalone::JsonPtr object(json_object_new_object());
    json_object_object_add(object.get(), "channel", json_object_new_int(side_file.channel));
    json_object_object_add(object.get(), "guid", new_json_text(side_file.guid));
    json_object_object_add(object.get(), "start", json_object_new_int64(side_file.start));
    json_object_object_add(object.get(), "length", json_object_new_int64(copy.size));
    json_object_object_add(object.get(), "sha256", new_json_text(copy.sha256));
    return standalone::print_json(object.get()) + "\n";
}

}  // namespace services
