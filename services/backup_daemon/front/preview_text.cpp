// A preview of a run as one line of JSON.
#include "services/backup_daemon/front/preview_text.h"

#include <json-c/json.h>

#include "platform/standalone/store/strict_json.h"

namespace services {
namespace {

class Members {
public:
    void add(const char* name, long long number) { add(name, json_object_new_int64(number)); }
    void add(const char* name, const std::string& text) {
        add(name, standalone::new_json_text(text));
    }
    void add(const char* name, json_object* value) {
        json_object_object_add(object_.get(), name, value);
    }
    std::string text() const { return standalone::print_json(object_.get()); }

private:
    JsonPtr object_{json_object_new_object()};
};

}  // namespace

std::string preview_text(const RunPreview& preview) {
    Members object;
    object.add("files", preview.to_copy.files);
    object.add("bytes", preview.to_copy.bytes);
    object.add("compare_files", preview.to_compare.files);
    object.add("compare_bytes", preview.to_compare.bytes);
    object.add("cameras", preview.cameras);
    object.add("days", preview.days);
    object.add("first_day", preview.first_day);
    object.add("last_day", preview.last_day);
    object.add("remove_files", preview.too_old.files);
    object.add("remove_bytes", preview.too_old.bytes);
    object.add("why_copies_stay", preview.why_copies_stay);
    if (preview.room) {
        object.add("free_bytes", preview.room->free);
        object.add("total_bytes", preview.room->total);
    }
    object.add("can_make_way_bytes", preview.can_make_way);
    object.add("fits", json_object_new_boolean(preview.fits));
    object.add("problem", preview.failure);
    return object.text();
}

}  // namespace services
