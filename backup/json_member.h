// Sets one member of a JSON object. The object owns the value; keys are literals and are not copied.
#pragma once

#include <json-c/json.h>
#include <json-c/printbuf.h>

#include <charconv>
#include <string>

// Each call adds the member at the end, or gives an earlier member of that name the new value in its
// old place. A value of the same kind is changed where it stands, so that an object which is filled
// again and again costs no memory after the first time.

/// Takes over `value`.
inline void add_member(json_object* object, const char* key, json_object* value) {
    json_object_object_add_ex(object, key, value, JSON_C_OBJECT_ADD_CONSTANT_KEY);
}

inline void add_member(json_object* object, const char* key, const char* value) {
    json_object* member = json_object_object_get(object, key);
    if (json_object_set_string(member, value) == 0)
        add_member(object, key, json_object_new_string(value));
}

inline void add_member(json_object* object, const char* key, const std::string& value) {
    add_member(object, key, value.c_str());
}

/// Prints an integer as json-c does, without its printf(), which took a seventh of a long task list's
/// time.
inline int print_integer(json_object* integer, printbuf* output, int, int) {
    char text[24];
    char* end = std::to_chars(text, text + sizeof text, json_object_get_int64(integer)).ptr;
    return printbuf_memappend(output, text, static_cast<int>(end - text));
}

inline void add_member(json_object* object, const char* key, long long value) {
    json_object* member = json_object_object_get(object, key);
    if (json_object_set_int64(member, value) != 0) return;
    member = json_object_new_int64(value);
    json_object_set_serializer(member, print_integer, nullptr, nullptr);
    add_member(object, key, member);
}

inline void add_member(json_object* object, const char* key, int value) {
    add_member(object, key, static_cast<long long>(value));
}

inline void add_member(json_object* object, const char* key, bool value) {
    json_object* member = json_object_object_get(object, key);
    if (json_object_set_boolean(member, value) == 0)
        add_member(object, key, json_object_new_boolean(value));
}

inline void add_member(json_object* object, const char* key, double value) {
    json_object* member = json_object_object_get(object, key);
    if (json_object_set_double(member, value) == 0)
        add_member(object, key, json_object_new_double(value));
}
