// The description that format "ostra" puts beside a copy.
#include "services/backup_daemon/copy/side_file.h"

#include <json-c/json.h>

#include "platform/standalone/store/strict_json.h"

namespace services {

std::string side_file_path(const std::string& path) {
    return path + ".json";
}

std::string side_file_text(const SideFile& side_file, long long length, const std::string& sha256) {
    const JsonPtr object(json_object_new_object());
    json_object_object_add(object.get(), "channel", json_object_new_int(side_file.channel));
    json_object_object_add(object.get(), "guid", standalone::new_json_text(side_file.guid));
    json_object_object_add(object.get(), "start", json_object_new_int64(side_file.start));
    json_object_object_add(object.get(), "length", json_object_new_int64(length));
    json_object_object_add(object.get(), "sha256", standalone::new_json_text(sha256));
    return standalone::print_json(object.get()) + "\n";
}

std::string side_file_end(long long length, const std::string& sha256) {
    const std::string text = side_file_text({}, length, sha256);
    return text.substr(text.find("\"length\""));
}

void write_side_file(Share& share, const std::string& target, const std::string& temporary,
                     const std::string& text) {
    const std::string unfinished = side_file_path(temporary);
    const auto file = share.open(unfinished, Share::Open::write);
    file->truncate(0);
    file->write(0, text.data(), text.size());
    file->close();
    share.rename(unfinished, side_file_path(target));
}

}  // namespace services
