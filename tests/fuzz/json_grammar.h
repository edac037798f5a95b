// A second opinion on what JSON is: the grammar of RFC 8259, written without json-c.
#pragma once

#include <string_view>

namespace fuzz {

/// What a text is.
struct Verdict {
    bool is_json = false;    ///< the whole of it is one value in UTF-8, blanks around it allowed
    bool is_object = false;  ///< and that is an object
    int depth = 0;           ///< most arrays and objects within each other
    /// Two members of one object have the same name, or one is written with escapes, so that this
    /// judge does not know it.
    bool names_may_repeat = false;
    /// A number like 00.5 or -.5 stands in it: no JSON, but the strict reader lets most of them
    /// pass. Until it refuses them, such a text counts as JSON here.
    bool odd_numbers = false;
};

Verdict judge_json(std::string_view text);

inline bool is_json(std::string_view text) {
    return judge_json(text).is_json;
}

/// Whether the whole text is UTF-8 as RFC 3629 has it.
bool is_utf8_text(std::string_view text);

}  // namespace fuzz
