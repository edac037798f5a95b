// The description that format "ostra" puts beside a copy.
#include "services/backup_daemon/copy/side_file.h"

#include <json-c/json.h>

#include <functional>

#include "platform/standalone/store/strict_json.h"
#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/remnant.h"
#include "services/backup_daemon/copy/share_text.h"

namespace services {
namespace {

// No description comes near it.
constexpr long long LARGEST_DESCRIPTION = 64LL * 1024;

/// Whether a text is a description of the recording, of whatever length that had then.
bool describes(const std::string& text, const SideFile& described) {
    const JsonPtr object = standalone::parse_strict_object(text);
    json_object* guid = nullptr;
    json_object* start = nullptr;
    return json_object_object_get_ex(object.get(), "guid", &guid) &&
           json_object_object_get_ex(object.get(), "start", &start) &&
           json_object_is_type(guid, json_type_string) &&
           json_object_is_type(start, json_type_int) &&
           json_object_get_string(guid) == described.guid &&
           json_object_get_int64(start) == described.start;
}

std::string content_of(Share& share, const std::string& path, long long size) {
    std::string content(static_cast<std::size_t>(size), '\0');
    content.resize(share.open(path, Share::Open::read)->read(0, content.data(), content.size()));
    return content;
}

}  // namespace

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

void write_side_file(Share& share, const Naming& naming, const SideFile& described,
                     const std::string& text) {
    put_text(share, naming.temporary, text);
    if (take_free_name(share, naming)) return;
    const auto there = share.look(naming.target);
    if (there && there->size <= LARGEST_DESCRIPTION) {
        const std::string content = content_of(share, naming.target, there->size);
        const bool ours = is_remnant(content, naming.claim) || is_remnant(content, text) ||
                          describes(content, described);
        std::function<bool()> has_zeros;
        if (content.find('\0') != std::string::npos)
            has_zeros = [&] { return content_of(share, naming.target, there->size) == content; };
        if (ours && take_over_name(share, naming, *there, has_zeros)) return;
    }
    share.remove(naming.temporary);
    throw CopyFailure(FailureKind::occupied,
                      naming.target + ": another file, not of this recorder, has this name");
}

}  // namespace services
