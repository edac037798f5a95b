// The JSON getters: which kinds they take, and what they leave alone.
#include "platform/comutil_json.h"

#include <gtest/gtest.h>
#include <json-c/json.h>

#include "platform/json_ptr.h"

namespace {

const JsonPtr OBJECT(json_tokener_parse(
    R"({"text": "abc", "cut": "a\u0000b", "yes": true, "no": false, "one": 1, "half": 0.5,)"
    R"( "huge": 9223372036854775807, "null": null, "list": [1], "object": {"text": "x"}})"));

constexpr const char* KEYS[] = {"text", "yes",  "no",   "one",    "half",
                                "huge", "null", "list", "object", "absent"};

/// The keys whose values the getter takes. It must leave the output of the others alone.
template <typename Value, typename Getter>
std::string taken(Getter getter, Value untouched) {
    std::string keys;
    for (const char* key : KEYS) {
        Value value = untouched;
        if (getter(OBJECT.get(), key, &value))
            keys += std::string(key) + ' ';
        else
            EXPECT_EQ(value, untouched) << key;
    }
    return keys;
}

TEST(JsonGetters, TakeOneKindEach) {
    EXPECT_EQ(taken(comutil_get_json_int_by_key, -77), "one huge ");
    EXPECT_EQ(taken(comutil_get_json_double_by_key, -77.0), "one half huge ");
    EXPECT_EQ(taken(comutil_get_json_bool_by_key, true), "yes no ");
    EXPECT_EQ(taken(comutil_get_json_bool_by_key, false), "yes no ");
}

TEST(JsonGetters, TakeTextsAloneAsTexts) {
    for (const char* key : KEYS) {
        char buffer[8] = "before";
        const bool is_text = std::string(key) == "text";
        EXPECT_EQ(comutil_get_json_str_by_key(OBJECT.get(), key, buffer, sizeof buffer), is_text);
        EXPECT_STREQ(buffer, is_text ? "abc" : "before") << key;
    }
}

TEST(JsonGetters, GiveTheValues) {
    int number = 0;
    bool flag = true;
    double decimal = 0;
    EXPECT_TRUE(comutil_get_json_bool_by_key(OBJECT.get(), "no", &flag));
    EXPECT_FALSE(flag);
    EXPECT_TRUE(comutil_get_json_bool_by_key(OBJECT.get(), "yes", &flag));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(comutil_get_json_int_by_key(OBJECT.get(), "one", &number));
    EXPECT_EQ(number, 1);
    EXPECT_TRUE(comutil_get_json_double_by_key(OBJECT.get(), "one", &decimal));
    EXPECT_EQ(decimal, 1.0);
}

TEST(JsonGetters, EndATextAtANulAndAtTheBuffersEnd) {
    char buffer[4] = "xyz";
    EXPECT_TRUE(comutil_get_json_str_by_key(OBJECT.get(), "cut", buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "a");
    EXPECT_TRUE(comutil_get_json_str_by_key(OBJECT.get(), "text", buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "abc");
    EXPECT_TRUE(comutil_get_json_str_by_key(OBJECT.get(), "text", buffer, 3));
    EXPECT_STREQ(buffer, "ab");
}

TEST(JsonGetters, TakeNothingOutOfWhatIsNoObject) {
    const JsonPtr list(json_tokener_parse(R"(["text", 1, true])"));
    int number = 5;
    EXPECT_FALSE(comutil_get_json_int_by_key(list.get(), "one", &number));
    EXPECT_FALSE(comutil_get_json_int_by_key(nullptr, "one", &number));
    bool flag = false;
    EXPECT_FALSE(comutil_get_json_bool_by_key(nullptr, "yes", &flag));
    double decimal = 5;
    EXPECT_FALSE(comutil_get_json_double_by_key(nullptr, "half", &decimal));
    EXPECT_EQ(number, 5);
    EXPECT_EQ(decimal, 5);
}

}  // namespace
