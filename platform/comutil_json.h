// The recorder's JSON getters: one member of one object, of one kind.
#pragma once

#include <cstddef>

struct json_object;  // json-c

// Each getter returns true when `object` is a JSON object that has `key` with a value of the kind
// asked for, and stores it. Otherwise (null, no object, no such key, another kind) it returns false
// and leaves the output as it was. Kinds are never converted into each other, but for whole numbers
// read as doubles. `object` stays the caller's.

/// Copies a string into `buf`, always NUL-terminated. A text longer than size - 1 bytes is cut to
/// the longest run of whole UTF-8 characters that fits (for plain ASCII, size - 1 characters); a
/// text with a NUL inside ends there.
/// @param size bytes in `buf`; 0 stores nothing and returns false
bool comutil_get_json_str_by_key(json_object* object, const char* key, char* buf, std::size_t size);

/// Reads an integer. Values beyond 32 bits are clamped to INT32_MIN or INT32_MAX.
bool comutil_get_json_int_by_key(json_object* object, const char* key, int* value);

/// Reads true or false; 0 and 1 are integers, not booleans.
bool comutil_get_json_bool_by_key(json_object* object, const char* key, bool* value);

/// Reads any number.
bool comutil_get_json_double_by_key(json_object* object, const char* key, double* value);
