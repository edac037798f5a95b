// Which bytes are no UTF-8.
#include "platform/standalone/store/utf8.h"

#include <gtest/gtest.h>

#include <utility>

#include "platform/standalone/store/text_buffer.h"

namespace {

using namespace standalone;

const std::string R = "\xEF\xBF\xBD";

TEST(ValidUtf8, KeepsWhatIsValid) {
    const std::string text = std::string("a\0z", 3) +
                             "\xC2\x80 \xDF\xBF \xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 "
                             "\xEF\xBF\xBF \xF0\x90\x80\x80 \xF4\x8F\xBF\xBF";
    EXPECT_EQ(valid_utf8(text), text);
    EXPECT_EQ(valid_utf8(""), "");
}

TEST(ValidUtf8, ReplacesLoneAndForbiddenBytes) {
    EXPECT_EQ(valid_utf8("a\x80z"), "a" + R + "z");
    EXPECT_EQ(valid_utf8("\xFF\xFE"), R + R);
    EXPECT_EQ(valid_utf8("\xC3("), R + "(");
}

TEST(ValidUtf8, ReplacesCutCharacters) {
    EXPECT_EQ(valid_utf8("a\xC3"), "a" + R);
    EXPECT_EQ(valid_utf8("\xE2\x82"), R + R);
    EXPECT_EQ(valid_utf8("\xF0\x9F\x98"), R + R + R);
}

TEST(ValidUtf8, ReplacesOverlongSurrogatesAndTooHigh) {
    EXPECT_EQ(valid_utf8("\xC0\xAF"), R + R);
    EXPECT_EQ(valid_utf8("\xE0\x9F\xBF"), R + R + R);
    EXPECT_EQ(valid_utf8("\xED\xA0\x80"), R + R + R);
    EXPECT_EQ(valid_utf8("\xF4\x90\x80\x80"), R + R + R + R);
}

TEST(IsUtf8, TellsTheSame) {
    for (const char* text : {"", "plain", "\xC2\x80", "\xED\x9F\xBF", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(is_utf8(text)) << text;
    for (const char* text : {"\x80", "a\xC3", "\xC0\xAF", "\xE0\x9F\xBF", "\xED\xA0\x80",
                             "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80"})
        EXPECT_FALSE(is_utf8(text)) << text;
}

TEST(CutUtf8, CutsNoCharacter) {
    const std::string text = "aß€😀";
    for (const auto& [most, length] :
         {std::pair{0, 0}, {1, 1}, {2, 1}, {3, 3}, {5, 3}, {6, 6}, {9, 6}, {10, 10}, {11, 10}})
        EXPECT_EQ(cut_utf8(text, most), text.substr(0, length)) << most;
}

TEST(CutUtf8, CountsBytesThatAreNoneByThemselves) {
    EXPECT_EQ(cut_utf8("\x80\x80\x80\x80\x80\x80", 4), "\x80\x80\x80\x80");
    EXPECT_EQ(cut_utf8("ab\xE2\x82", 3), "ab\xE2");
}

TEST(CopyText, EndsInANulAndFillsTheBufferNotBeyond) {
    char buffer[6] = {'x', 'x', 'x', 'x', 'x', 'x'};
    copy_text("abcdefgh", buffer, 5);
    EXPECT_STREQ(buffer, "abcd");
    EXPECT_EQ(buffer[5], 'x');
    copy_text("abcd", buffer, 5);
    EXPECT_STREQ(buffer, "abcd");
    copy_text("ab€", buffer, 5);
    EXPECT_STREQ(buffer, "ab");
    copy_text("x", buffer, 1);
    EXPECT_STREQ(buffer, "");
}

}  // namespace
