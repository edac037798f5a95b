// Names that every server takes, and the joining of paths.
#include "services/backup_daemon/copy/share_path.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

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

TEST(SharePath, PathsAreJoinedAndTakenApart) {
    EXPECT_EQ(join_path("a", "b"), "a/b");
    EXPECT_EQ(join_path("", "b"), "b");
    EXPECT_EQ(join_path("a", ""), "a");
    EXPECT_EQ(join_path("", ""), "");
    EXPECT_EQ(folder_of("a/b/c"), "a/b");
    EXPECT_EQ(folder_of("c"), "");
}

}  // namespace
