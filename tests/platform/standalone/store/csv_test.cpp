// How fields become a CSV line.
#include "platform/standalone/store/csv.h"

#include <gtest/gtest.h>

using standalone::csv_line;

TEST(CsvLine, JoinsPlainFieldsAndEndsInCrLf) {
    EXPECT_EQ(csv_line({"a", "", "b c"}), "a,,b c\r\n");
    EXPECT_EQ(csv_line({"", ""}), ",\r\n");
}

TEST(CsvLine, QuotesCommasQuotesAndLineEnds) {
    EXPECT_EQ(csv_line({"a,b", "say \"no\"", "x\r\ny"}),
              "\"a,b\",\"say \"\"no\"\"\",\"x\r\ny\"\r\n");
}

TEST(CsvLine, DisarmsFormulas) {
    EXPECT_EQ(csv_line({"=1+1", "+1", "-1", "@a"}), "'=1+1,'+1,'-1,'@a\r\n");
    EXPECT_EQ(csv_line({"\t=1", "\r=1", "\n=1"}), "'\t'=1,\"'\r'=1\",\"'\n'=1\"\r\n");
    EXPECT_EQ(csv_line({"\ta", "\r", ";"}), "'\ta,\"'\r\",;\r\n");
    EXPECT_EQ(csv_line({"=cmd|' /C calc'!A0,\""}), "\"'=cmd|' /C calc'!A0,\"\"\"\r\n");
}

TEST(CsvLine, DisarmsWhatBeginsACellForOtherSeparators) {
    EXPECT_EQ(csv_line({"a;=1", "a\t+1", "a\r-1", "a\n@b"}),
              "a;'=1,a\t'+1,\"a\r'-1\",\"a\n'@b\"\r\n");
    EXPECT_EQ(csv_line({"a;;=1;b;-1"}), "a;;'=1;b;'-1\r\n");
}

TEST(CsvLine, DisarmsFullWidthSigns) {
    EXPECT_EQ(csv_line({"\uFF1D1", "\uFF0B1", "\uFF0D1", "\uFF20a", "a;\uFF1D1"}),
              "'\uFF1D1,'\uFF0B1,'\uFF0D1,'\uFF20a,a;'\uFF1D1\r\n");
}

TEST(CsvLine, DisarmsBehindBlanksAndQuotationMarks) {
    EXPECT_EQ(csv_line({" =1", "a; \"=1\""}), " '=1,\"a; \"\"'=1\"\"\"\r\n");
    EXPECT_EQ(csv_line({"\"=1"}), "\"\"\"'=1\"\r\n");
}

TEST(CsvLine, LeavesSignsInsideAlone) {
    EXPECT_EQ(csv_line({"a=b", "1-2", "me@here", "a; b=c"}), "a=b,1-2,me@here,a; b=c\r\n");
    EXPECT_EQ(csv_line({"a\uFF1Db", "\uFF1E", "\uFF01=1"}), "a\uFF1Db,\uFF1E,\uFF01=1\r\n");
}

TEST(CsvLine, ReplacesBytesThatAreNoUtf8) {
    EXPECT_EQ(csv_line({"Stra\xC3\x9F"
                        "e",
                        "a\xFF"}),
              "Stra\xC3\x9F"
              "e,a\xEF\xBF\xBD\r\n");
}
