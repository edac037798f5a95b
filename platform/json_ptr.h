// Owns JSON objects, for every room.
#pragma once

#include <memory>

struct json_object;  // json-c
extern "C" int json_object_put(json_object* object);

struct ReleaseJson {
    void operator()(json_object* object) const { json_object_put(object); }
};

/// Owns one reference to a JSON object.
using JsonPtr = std::unique_ptr<json_object, ReleaseJson>;
