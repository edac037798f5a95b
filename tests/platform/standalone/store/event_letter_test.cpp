// Events on their way to the log service: what is printed is read as it was, all else is refused.
#include "platform/standalone/store/event_letter.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace standalone;
using namespace std::string_literals;

constexpr char FIELDS[] = R"("time_ms":5,"event_id":7,"channel":-1,"user":"u","ip":"i")";

NewEvent usual() {
    return {{0, 1709297110000, 0x62040001, -1, "admin", "192.168.1.20", {"Recording Backup", "x"}}};
}

void expect_same(const std::optional<NewEvent>& read, const NewEvent& written) {
    ASSERT_TRUE(read);
    EXPECT_EQ(read->event.id, 0);
    EXPECT_EQ(read->event.time_ms, written.event.time_ms);
    EXPECT_EQ(read->event.event_id, written.event.event_id);
    EXPECT_EQ(read->event.channel, written.event.channel);
    EXPECT_EQ(read->event.user, written.event.user);
    EXPECT_EQ(read->event.ip, written.event.ip);
    EXPECT_EQ(read->event.arguments, written.event.arguments);
    ASSERT_EQ(read->limit.has_value(), written.limit.has_value());
    if (!read->limit) return;
    EXPECT_EQ(read->limit->most, written.limit->most);
    EXPECT_EQ(read->limit->arguments, written.limit->arguments);
}

void expect_round_trip(const NewEvent& letter) {
    const std::string text = print_letter(letter);
    SCOPED_TRACE(text);
    expect_same(read_letter(text), letter);
}

/// A letter whose members are these besides the usual ones.
std::string with(const std::string& members) {
    return "{"s + FIELDS + R"(,"arguments":["a"])" + members + "}";
}

/// The usual letter with one member's value exchanged.
std::string with_value(const std::string& key, const std::string& value) {
    std::string text = with(R"(,"most":100,"alike_arguments":2)");
    const std::size_t begin = text.find("\"" + key + "\":") + key.size() + 3;
    const std::size_t end =
        text[begin] == '[' ? text.find(']') + 1 : text.find_first_of(",}", begin);
    return text.replace(begin, end - begin, value);
}

TEST(EventLetter, IsPrintedAsThePageHasIt) {
    NewEvent letter{
        {0, 1709297110000, 1644429313, -1, "admin", "192.168.1.20", {"Recording Backup", "Doors"}}};
    EXPECT_EQ(print_letter(letter),
              R"({"time_ms":1709297110000,"event_id":1644429313,"channel":-1,"user":"admin",)"
              R"("ip":"192.168.1.20","arguments":["Recording Backup","Doors"]})");
    letter.limit = EventLimit{100, 2};
    EXPECT_TRUE(print_letter(letter).ends_with(R"(],"most":100,"alike_arguments":2})"));
}

TEST(EventLetter, KeepsEveryField) {
    NewEvent letter = usual();
    expect_round_trip(letter);
    letter.limit = EventLimit{100, 2};
    expect_round_trip(letter);
    letter.limit = EventLimit{0, 0};
    expect_round_trip(letter);
}

TEST(EventLetter, KeepsTextsByteForByte) {
    std::string every;
    for (int byte = 0; byte < 256; ++byte) every.push_back(static_cast<char>(byte));
    for (const std::string& text :
         {""s, "\0"s, "a\0b"s, "\xff"s, "\xe2\x82"s, "\xed\xa0\x80"s, "\xc0\x80"s, "\""s, "\\"s,
          "\\\""s, "\\u0000"s, "a/b"s, "</script>"s, "\r\n\t\b\f\x7f"s, "é€😀"s, "',[]{}:"s, every,
          std::string(10'000, '"')}) {
        NewEvent letter = usual();
        letter.event.user = letter.event.ip = text;
        letter.event.arguments = {text, "", text + text};
        expect_round_trip(letter);
    }
}

TEST(EventLetter, KeepsNumbersToTheEndsOfTheirFields) {
    NewEvent letter = usual();
    letter.event.arguments.clear();
    for (const unsigned id : {0U, 0x80000000U, 0xffffffffU}) {
        letter.event.event_id = id;
        expect_round_trip(letter);
    }
    for (const int channel : {std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        letter.event.channel = channel;
        letter.limit = EventLimit{channel, std::size_t{1} << 62};
        expect_round_trip(letter);
    }
    for (const long long time : {0LL, -1LL, 1LL << 62}) {
        letter.event.time_ms = time;
        expect_round_trip(letter);
    }
}

TEST(EventLetter, IsNoOtherText) {
    for (const std::string& text :
         {""s, " "s, "\0"s, "x"s, "{"s, "{}"s, "[]"s, "null"s, "1"s, "\"a\""s, "\xff\xfe"s,
          std::string(60'000, '['), std::string(60'000, '{')})
        EXPECT_FALSE(read_letter(text)) << text.substr(0, 100);
}

TEST(EventLetter, IsTheWholeText) {
    const std::string text = print_letter(usual());
    for (std::size_t size = 0; size < text.size(); ++size)
        EXPECT_FALSE(read_letter(text.substr(0, size))) << size;
    for (const std::string& behind : {"x"s, "{}"s, "}"s, "\0"s, "\0{}"s, text})
        EXPECT_FALSE(read_letter(text + behind)) << behind;
}

TEST(EventLetter, HasEveryMember) {
    ASSERT_TRUE(read_letter(with("")));
    for (const char* key : {"time_ms", "event_id", "channel", "user", "ip", "arguments"}) {
        std::string text = with("");
        text.replace(text.find(key), 1, "X");
        EXPECT_FALSE(read_letter(text)) << text;
    }
}

TEST(EventLetter, HasBothMembersOfALimitOrNone) {
    EXPECT_TRUE(read_letter(with(R"(,"most":100,"alike_arguments":2)")));
    EXPECT_FALSE(read_letter(with(R"(,"most":100)")));
    EXPECT_FALSE(read_letter(with(R"(,"alike_arguments":2)")));
    EXPECT_FALSE(read_letter(with(R"(,"most":null,"alike_arguments":null)")));
}

TEST(EventLetter, HasMembersOfTheirKinds) {
    for (const char* key : {"time_ms", "event_id", "channel", "most", "alike_arguments"}) {
        ASSERT_TRUE(read_letter(with_value(key, "3"))) << with_value(key, "3");
        for (const char* value : {"null", "true", "\"3\"", "3.0", "3e0", "[3]", "{}"})
            EXPECT_FALSE(read_letter(with_value(key, value))) << with_value(key, value);
    }
    for (const char* key : {"user", "ip"})
        for (const char* value : {"null", "true", "3", "[\"u\"]", "{}"})
            EXPECT_FALSE(read_letter(with_value(key, value))) << with_value(key, value);
    for (const char* value : {"null", "\"a\"", "{}", "[1]", "[null]", "[\"a\",true]", "[[\"a\"]]"})
        EXPECT_FALSE(read_letter(with_value("arguments", value))) << with_value("arguments", value);
}

/// A cast would make another event of it.
TEST(EventLetter, HasNumbersThatTheirFieldsHold) {
    for (const auto& [key, value] : std::vector<std::pair<std::string, std::string>>{
             {"event_id", "-1"},
             {"event_id", "4294967296"},
             {"event_id", "99999999999999999999"},
             {"channel", "2147483648"},
             {"channel", "-2147483649"},
             {"most", "2147483648"},
             {"most", "4294967396"},
             {"alike_arguments", "-1"},
             {"alike_arguments", "99999999999999999999"},
             {"time_ms", "9223372036854775808"},
             {"time_ms", "99999999999999999999"},
             {"time_ms", "-99999999999999999999"}})
        EXPECT_FALSE(read_letter(with_value(key, value))) << with_value(key, value);
}

}  // namespace
