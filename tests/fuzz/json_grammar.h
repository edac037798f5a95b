// A second opinion on what JSON is: the grammar of RFC 8259, written without json-c.
#pragma once

#include <string_view>

namespace fuzz {

/// What a text is.
struct Verdict {
    bool is_json = false;    ///< the whole of it is one value in UTF-8, blanks around it allowed
    bool is_object = false;  ///< and that is an object
    int depth = 0;           ///< most arrays and objects within each other
    bool repeats_a_name = false;  ///< two members of one object have the same name
    /// It may repeat one all the same: a name is written with escapes, which this judge does not
    /// read, or an object has more members than it remembers.
    bool names_unknown = false;
};

Verdict judge_json(std::string_view text);

inline bool is_json(std::string_view text) {
    return judge_json(text).is_json;
}

/// Whether the whole text is UTF-8 as RFC 3629 has it.
bool is_utf8_text(std::string_view text);

}  // namespace fuzz
