// Adds one member to a JSON object, which owns the value. Keys are literals and are not copied.
#pragma once

#include <json-c/json.h>

#include <string>

/// Adds `value` as `key`, or puts it in the place of an earlier member of that name. Takes over
/// `value`.
inline void add_member(json_object* object, const char* key, json_object* value) {
    json_object_object_add_ex(object, key, value, JSON_C_OBJECT_ADD_CONSTANT_KEY);
}

inline void add_member(json_object* object, const char* key, const char* value) {
    add_member(object, key, json_object_new_string(value));
}

inline void add_member(json_object* object, const char* key, const std::string& value) {
    add_member(object, key, value.c_str());
}

inline void add_member(json_object* object, const char* key, int value) {
    add_member(object, key, json_object_new_int(value));
}

inline void add_member(json_object* object, const char* key, long long value) {
    add_member(object, key, json_object_new_int64(value));
}

inline void add_member(json_object* object, const char* key, bool value) {
    add_member(object, key, json_object_new_boolean(value));
}
