// The JSON getters, over json-c.
#include "platform/comutil_json.h"

#include <json-c/json.h>

#include "platform/standalone/store/text_buffer.h"

namespace {

/// The member when it has the kind asked for; null otherwise.
json_object* member_of_type(json_object* object, const char* key, json_type type) {
    json_object* value = nullptr;
    if (!json_object_is_type(object, json_type_object) ||
        !json_object_object_get_ex(object, key, &value) || !json_object_is_type(value, type))
        return nullptr;
    return value;
}

}  // namespace

bool comutil_get_json_str_by_key(json_object* object, const char* key, char* buf,
                                 std::size_t size) {
    json_object* value = member_of_type(object, key, json_type_string);
    if (value == nullptr || size == 0) return false;
    standalone::copy_text(json_object_get_string(value), buf, size);
    return true;
}

bool comutil_get_json_int_by_key(json_object* object, const char* key, int* value) {
    json_object* found = member_of_type(object, key, json_type_int);
    if (found == nullptr) return false;
    *value = json_object_get_int(found);
    return true;
}

bool comutil_get_json_bool_by_key(json_object* object, const char* key, bool* value) {
    json_object* found = member_of_type(object, key, json_type_boolean);
    if (found == nullptr) return false;
    *value = json_object_get_boolean(found) != 0;
    return true;
}

bool comutil_get_json_double_by_key(json_object* object, const char* key, double* value) {
    json_object* found = member_of_type(object, key, json_type_double);
    if (found == nullptr) found = member_of_type(object, key, json_type_int);
    if (found == nullptr) return false;
    *value = json_object_get_double(found);
    return true;
}
