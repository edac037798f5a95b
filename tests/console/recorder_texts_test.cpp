// What the recorder says in words that are always the same has a German text in the page.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "platform/standalone/store/backup_status.h"
#include "platform/standalone/store/remedy.h"
#include "platform/standalone/store/strict_json.h"
#include "tests/support/whole_file.h"

namespace {

using namespace standalone;

std::set<std::string> constant_texts() {
    std::set<std::string> texts;
    for (const auto& list : {all_remedies(), constant_status_texts()})
        texts.insert(list.begin(), list.end());
    return texts;
}

/// The page's table, or null when it has a text twice.
JsonPtr german_texts() {
    return parse_strict_object(read_file(PAGE_SOURCES "/recorder_texts_de.json"));
}

TEST(RecorderTexts, EachHasItsOwnGermanOne) {
    const JsonPtr table = german_texts();
    ASSERT_TRUE(table);
    for (const std::string& text : constant_texts()) {
        json_object* german = nullptr;
        ASSERT_TRUE(json_object_object_get_ex(table.get(), text.c_str(), &german)) << text;
        ASSERT_TRUE(json_object_is_type(german, json_type_string)) << text;
        EXPECT_GT(json_object_get_string_len(german), 0) << text;
        EXPECT_NE(json_object_get_string(german), text);
    }
}

TEST(RecorderTexts, NoGermanOneIsOfWhatIsNeverSaid) {
    const JsonPtr table = german_texts();
    ASSERT_TRUE(table);
    const auto texts = constant_texts();
    json_object_object_foreach(table.get(), text, german) {
        static_cast<void>(german);
        EXPECT_TRUE(texts.contains(text)) << text;
    }
}

}  // namespace
