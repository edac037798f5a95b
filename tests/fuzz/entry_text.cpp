// The entry of a list as text: byte for byte what json-c prints of the same members.
#include "backup/entry_text.h"

#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"

namespace {

using fuzz::check;

/// Adds a member to the entry, and to the object that json-c prints.
void add(EntryText& entry, json_object* object, const std::string& key, const std::string& line) {
    const long long number = line.empty() ? 0 : fuzz::number(line.substr(1));
    json_object* member = nullptr;
    if (line[0] == 'n') {
        entry.add(key.c_str(), number);
        member = json_object_new_int64(number);
    } else if (line[0] == 'b') {
        entry.add(key.c_str(), number != 0);
        member = json_object_new_boolean(number != 0);
    } else if (line[0] == 'a') {
        member = json_object_new_array();
        json_object_array_add(member, json_object_new_int64(number));
        entry.add(key.c_str(), JsonPtr(json_object_get(member)));
    } else {
        entry.add(key.c_str(), line);
        member = json_object_new_string_len(line.data(), static_cast<int>(line.size()));
    }
    json_object_object_add(object, key.c_str(), member);
}

}  // namespace

// A member a line: n and a number, b and whether, a and an array's element, or any text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = fuzz::text(data, size);
    EntryText entry;
    const JsonPtr object(json_object_new_object());
    int count = 0;
    for (const std::string_view line : fuzz::pieces(input, '\n'))
        add(entry, object.get(), "key" + std::to_string(count++), std::string(line));
    const JsonPtr text(json_object_new_object());
    entry.move_into(text.get());
    const std::string printed = json_object_to_json_string(text.get());
    check(printed == json_object_to_json_string(object.get()), "an entry prints as json-c prints");
    check(!fuzz::is_utf8_text(input) || fuzz::is_json(printed), "an entry of UTF-8 is JSON");
    return 0;
}
