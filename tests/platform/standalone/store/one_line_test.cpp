// Texts of others on one line of a log.
#include "platform/standalone/store/one_line.h"

#include <gtest/gtest.h>

using standalone::one_line;

TEST(OneLine, LeavesTextsWithoutControlCharactersAlone) {
    for (const char* text :
         {"", "a b\tc", "Zo\xC3\xAB \xF0\x9F\x93\xB7", "DOMAIN\\nick", "\xFF\x80"})
        EXPECT_EQ(one_line(text), text);
}

TEST(OneLine, SpellsOutEveryOtherControlCharacter) {
    EXPECT_EQ(one_line("a\nb\r\n"), "a\\nb\\r\\n");
    EXPECT_EQ(one_line(std::string("\0\x01\x1B\x1F\x7F", 5)), "\\x00\\x01\\x1B\\x1F\\x7F");
    EXPECT_EQ(one_line("\xC2\x80\xC2\x85\xC2\x9B?\xC2\xA0\xC2"), "\\x80\\x85\\x9B?\xC2\xA0\xC2");
}
