// Names that every server takes, and the joining of paths.
#include "services/backup_daemon/copy/share_path.h"

#include <gtest/gtest.h>

#include <codecvt>
#include <cwctype>
#include <locale>
#include <string>
#include <vector>

using namespace services;

namespace {

std::string utf8(char32_t character) {
    const std::u32string text(1, character);
    return std::wstring_convert<std::codecvt_utf8<char32_t>, char32_t>().to_bytes(text);
}

/// Whether it has a form of another case.
bool is_letter(char32_t character) {
    const locale_t letters = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const auto wide = static_cast<wint_t>(character);
    const bool has_case = towupper_l(wide, letters) != wide || towlower_l(wide, letters) != wide;
    freelocale(letters);
    return has_case;
}

TEST(SharePath, SafeNamesStayAsTheyAre) {
    for (const char* name : {"Front door", "01-02-03.mp4", "Tür 3", ".hidden", "COM10", "console"})
        EXPECT_EQ(safe_name(name), name);
}

TEST(SharePath, WhatSmbForbidsBecomesAnUnderscore) {
    EXPECT_EQ(safe_name("a\\b/c:d*e?f\"g<h>i|j"), "a_b_c_d_e_f_g_h_i_j");
    EXPECT_EQ(safe_name("tab\tnew\nline"), "tab_new_line");
    EXPECT_EQ(safe_name("\x01\x1f\x7f"), "___");
    EXPECT_EQ(safe_name("dot."), "dot_");
    EXPECT_EQ(safe_name("blank "), "blank_");
    EXPECT_EQ(safe_name(".."), "._");
    EXPECT_EQ(safe_name(""), "_");
}

TEST(SharePath, NamesOfDevicesGetAnUnderscore) {
    for (const std::string name : {"con", "PRN", "Aux", "nul", "COM1", "com9", "LPT1", "lpt9"}) {
        EXPECT_EQ(safe_name(name), name + "_");
        EXPECT_EQ(safe_name(name + ".txt"), name + "_.txt");
    }
    EXPECT_EQ(safe_name("NUL .mp4"), "NUL _.mp4");
    for (const char* name : {"COM0", "LPT", "COM", "CONS", "XPRN", "COM1x"})
        EXPECT_EQ(safe_name(name), name);
}

TEST(SharePath, BytesThatAreNoCharactersAreReplaced) {
    EXPECT_EQ(safe_name("a\xff"
                        "b"),
              "a\xef\xbf\xbd"
              "b");
}

TEST(SharePath, LongNamesAreCutBetweenCharacters) {
    std::string name;
    for (int count = 0; count < 300; ++count) name += "ü";
    EXPECT_EQ(safe_name(name).size(), 200U);
    EXPECT_EQ(safe_name("x" + name).size(), 199U);
    const std::string longest(200, 'x');
    EXPECT_EQ(safe_name(longest), longest);
    EXPECT_EQ(safe_name(longest + "x"), longest);
}

TEST(SharePath, NamesThatDifferInCaseAloneFoldToOneInAnyScript) {
    EXPECT_EQ(folded("Front DOOR/1.MP4"), "front door/1.mp4");
    const std::vector<std::vector<std::string>> alike = {{"Ärger", "ärger", "ÄRGER"},
                                                         {"Σ", "ς", "σ"},
                                                         {"ДВЕРЬ", "дверь"},
                                                         {"Ǆ", "ǅ", "ǆ"},
                                                         {"ẞ", "ß"},
                                                         {"Ω", "ω", "Ω"},
                                                         {"𐐀", "𐐨"},
                                                         {"S", "s", "ſ"}};
    for (const auto& names : alike)
        for (const std::string& name : names) EXPECT_EQ(folded(name), folded(names[0])) << name;
    EXPECT_NE(folded("Ä"), folded("A"));
    EXPECT_NE(folded("ü"), folded("u"));
    EXPECT_EQ(folded("門 3_\t"), "門 3_\t");
}

TEST(SharePath, FoldingKeepsWhatIsNoLetterAndNeedsNoSecondPass) {
    for (char32_t character = 1; character < 0x110000; ++character) {
        if (character >= 0xd800 && character < 0xe000) continue;
        const std::string text = utf8(character);
        const std::string once = folded(text);
        ASSERT_EQ(folded(once), once) << static_cast<unsigned>(character);
        if (!is_letter(character)) {
            ASSERT_EQ(once, text) << static_cast<unsigned>(character);
        }
    }
}

TEST(SharePath, FoldingMakesValidTextOfAnything) {
    EXPECT_EQ(folded("A\xff"), "a\xef\xbf\xbd");
    EXPECT_EQ(folded("\xe2\x82"), "\xef\xbf\xbd\xef\xbf\xbd");
    EXPECT_EQ(folded(""), "");
}

TEST(SharePath, PathsAreJoinedAndTakenApart) {
    EXPECT_EQ(join_path("a", "b"), "a/b");
    EXPECT_EQ(join_path("", "b"), "b");
    EXPECT_EQ(join_path("a", ""), "a");
    EXPECT_EQ(join_path("", ""), "");
    EXPECT_EQ(folder_of("a/b/c"), "a/b");
    EXPECT_EQ(folder_of("c"), "");
}

}  // namespace
