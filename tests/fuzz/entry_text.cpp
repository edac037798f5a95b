// The entry of a list as text: byte for byte what json-c prints of the same members.
#include "backup/entry_text.h"

#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"

namespace {

using fuzz::check;

/// The members' names, as json-c and as an entry takes them.
struct Name {
    const char* name;
    EntryText::Key key;
};
constexpr Name NAMES[] = {{"a", "a"}, {"b", "b"}, {"c", "c"}, {"d", "d"},
                          {"e", "e"}, {"f", "f"}, {"g", "g"}, {"a longer name", "a longer name"}};

/// Adds a member to the entry, and to the object that json-c prints.
void add(EntryText& entry, json_object* object, const Name& name, const std::string& line) {
    const long long number = line.empty() ? 0 : fuzz::number(line.substr(1));
    json_object* member = nullptr;
    if (line[0] == 'n') {
        entry.add(name.key, number);
        member = json_object_new_int64(number);
    } else if (line[0] == 'b') {
        entry.add(name.key, number != 0);
        member = json_object_new_boolean(number != 0);
    } else {
        entry.add(name.key, line);
        member = json_object_new_string_len(line.data(), static_cast<int>(line.size()));
    }
    json_object_object_add(object, name.name, member);
}

}  // namespace

// A member a line, as many as there are names: n and a number, b and whether, or any text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = fuzz::text(data, size);
    EntryText entry;
    const JsonPtr object(json_object_new_object());
    std::size_t count = 0;
    for (const std::string_view line : fuzz::pieces(input, '\n'))
        if (count < std::size(NAMES)) add(entry, object.get(), NAMES[count++], std::string(line));
    const std::string printed = json_object_to_json_string(entry.finish().get());
    check(printed == json_object_to_json_string(object.get()), "an entry prints as json-c prints");
    check(!fuzz::is_utf8_text(input) || fuzz::is_json(printed), "an entry of UTF-8 is JSON");
    return 0;
}
