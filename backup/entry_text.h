// One entry of a long list as text: an object printed member by member, in json-c's spaced layout.
#pragma once

#include <string>
#include <string_view>

#include "backup/operation.h"

/// Collects the members of one entry. As json-c objects, a thousand tasks of 32 members cost more
/// than twice this: for memory, for hashing their names, for printing in small pieces. Values are
/// printed by json-c all the same.
class EntryText {
public:
    EntryText() { text_.reserve(USUAL_LENGTH); }

    void add(const char* key, const std::string& text);
    void add(const char* key, long long value);
    void add(const char* key, int value) { add(key, static_cast<long long>(value)); }
    void add(const char* key, bool value);
    void add(const char* key, const JsonPtr& value);

    /// A text that needs no escapes: a word of ours, or digits.
    void add_word(const char* key, std::string_view word);

    /// A value that is JSON already.
    void add_printed(const char* key, const std::string& json);

    /// Has `object`, which has no members, print as the entry.
    void move_into(json_object* object);

private:
    /// Appends what stands before a value. Keys are literals that need no escapes.
    void begin(const char* key);

    static constexpr std::size_t USUAL_LENGTH = 1000;

    std::string text_ = "{";
};
