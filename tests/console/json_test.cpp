// The JSON of replies, the kinds of events, the session's cookie: what they make of whatever comes.
#include "console/json.h"

#include <gtest/gtest.h>
#include <json-c/json.h>

#include <cmath>

#include "console/cookie.h"
#include "console/log_kinds.h"
#include "console/refusal.h"
#include "platform/event_ids.h"

namespace {

using console::Body;
using console::Json;
using console::Refusal;

std::string field_of(const std::string& body, void (*read)(const Body&)) {
    try {
        read(Body(body));
    } catch (const Refusal& refusal) {
        return refusal.code + ":" + refusal.field;
    }
    return "taken";
}

TEST(Json, NestsObjectsAndArrays) {
    Json inner = Json::array();
    inner.append(1).append("two").append(Json::object());
    Json object = Json::object();
    object.add("a", inner).add("b", true).add("c", std::optional<int>()).add("d", Json::array());
    EXPECT_EQ(object.text(), R"({"a":[1,"two",{}],"b":true,"c":null,"d":[]})");
    EXPECT_EQ(inner.size(), 3U);
}

TEST(Json, WritesEveryByteSoThatReadersGetItBack) {
    std::string all;
    for (int byte = 1; byte < 0x80; ++byte) all += static_cast<char>(byte);
    all += "é\u202e📷";
    Json object = Json::object();
    object.add("text", all);
    const JsonPtr read(json_tokener_parse(object.text().c_str()));
    EXPECT_EQ(json_object_get_string(json_object_object_get(read.get(), "text")), all);
}

TEST(Json, ReplacesBytesThatAreNoText) {
    Json object = Json::object();
    object.add("text", std::string("a\xff\xc3") + '\0');
    EXPECT_EQ(object.text(), "{\"text\":\"a\uFFFD\uFFFD\\u0000\"}");
}

TEST(Json, WritesNumbersShortAndNullForWhatIsNone) {
    Json array = Json::array();
    array.append(0.1).append(25.0).append(1e300).append(std::nan("")).append(HUGE_VAL);
    array.append(-9'223'372'036'854'775'807LL - 1);
    EXPECT_EQ(array.text(), "[0.1,25,1e+300,null,null,-9223372036854775808]");
}

TEST(Body, NamesTheMemberThatIsWrong) {
    const auto read_text = [](const Body& body) { body.text("t", 3); };
    EXPECT_EQ(field_of(R"({"t":"abc"})", read_text), "taken");
    for (const char* wrong : {"{}", R"({"t":1})", R"({"t":null})", R"({"t":"abcd"})",
                              R"({"t":"a\u0000"})", R"({"t":["a"]})"})
        EXPECT_EQ(field_of(wrong, read_text), "bad_field:t") << wrong;
    for (const char* wrong : {"", "[]", "{\"t\":\"a\"} x", "{\"t\":\"a\",\"t\":\"b\"}", "{'t':1}"})
        EXPECT_EQ(field_of(wrong, read_text), "bad_body:") << wrong;
}

TEST(Body, TakesWholeNumbersOfARangeAlone) {
    const auto read_number = [](const Body& body) { body.number("n", 0, 59); };
    EXPECT_EQ(field_of(R"({"n":0})", read_number), "taken");
    EXPECT_EQ(field_of(R"({"n":59})", read_number), "taken");
    for (const char* wrong : {R"({"n":-1})", R"({"n":60})", R"({"n":1.0})", R"({"n":"1"})",
                              R"({"n":true})", R"({"n":99999999999999999999})"})
        EXPECT_EQ(field_of(wrong, read_number), "bad_field:n") << wrong;
}

TEST(LogKinds, GiveEveryKnownEventAKindOfItsOwn) {
    using namespace events;
    const std::pair<unsigned, const char*> rows[] = {
        {TASK_CREATED, "changes"},   {TASK_DISABLED, "changes"},
        {BACKUP_FORCED, "requests"}, {ACTIVATION_REFUSED, "requests"},
        {RUN_STARTED, "runs"},       {RUN_FAILED, "failures"},
        {COPY_SPOILT, "failures"},   {SIGN_IN_HELD_UP, "sign_ins"},
        {0x99990001, "others"}};
    for (const auto& [id, kind] : rows) {
        EXPECT_EQ(console::kind_of(id), kind);
        EXPECT_TRUE(console::is_kind(kind));
    }
    EXPECT_FALSE(console::is_kind("run"));
}

TEST(Cookie, IsForTheRecordersProgramsAlone) {
    EXPECT_EQ(console::session_cookie("ab", 60, false),
              "Set-Cookie: sid=ab; Path=/cgi-bin/; Max-Age=60; HttpOnly; SameSite=Strict");
    EXPECT_TRUE(console::session_cookie("ab", 60, true).ends_with("; Secure"));
}

}  // namespace
