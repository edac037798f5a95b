// One entry of a long list as text: an object printed member by member, in json-c's spaced layout.
#pragma once

#include <concepts>
#include <string>
#include <string_view>

#include "backup/operation.h"
#include "platform/member_name.h"

/// Collects the members of one entry. As json-c objects, a thousand tasks of 32 members cost three
/// times this: for memory, for hashing their names, for printing in small pieces.
class EntryText {
public:
    using Key = MemberName<JsonLayout::spaced>;

    EntryText() { text_.reserve(USUAL_LENGTH); }

    void add(const Key& key, std::string_view text);
    void add(const Key& key, long long value);
    void add(const Key& key, int value) { add(key, static_cast<long long>(value)); }
    template <std::same_as<bool> Bool>  // a literal would rather become a bool than a view
    void add(const Key& key, Bool value) {
        add_printed(key, value ? "true" : "false");
    }

    /// A text that needs no escapes: a word of ours, or digits.
    void add_word(const Key& key, std::string_view word);

    /// A value that is JSON already.
    void add_printed(const Key& key, std::string_view json);

    /// The entry as something that json-c prints; null when memory runs out.
    JsonPtr finish();

private:
    static constexpr std::size_t USUAL_LENGTH = 1000;

    std::string text_;
};
