// Which bytes are no UTF-8.
#include "services/utf8.h"

#include <gtest/gtest.h>

using services::valid_utf8;

namespace {

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

}  // namespace
