#include "terminal/Console.h"

#include "base/Text.h"

#include <gtest/gtest.h>

namespace velmo { namespace {

TEST(Printable, LeavesNothingThatCouldDriveATerminalOrReorderText) {
    struct Case {
        std::string from;
        std::string joined;
        std::string kept;
    };
    const Case cases[]{
        {"plain ä 日本", "plain ä 日本", "plain ä 日本"},
        {"\x1b[31mred\x1b]0;title\x07", "[31mred]0;title", "[31mred]0;title"},
        {"a\r\nb\tc", "a b c", "a\nb\tc"},
        {"c1\u009B31m \u0085", "c131m ", "c131m "},
        {"\u202Egnp.exe\u202C", "gnp.exe", "gnp.exe"},
        {std::string("nul\0x", 5), "nulx", "nulx"},
        {"bad\xFF", "bad\uFFFD", "bad\uFFFD"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(printable(c.from), c.joined);
        EXPECT_EQ(printable(c.from, Lines::kept), c.kept);
    }
}

TEST(Fitting, CountsColumnsAndNeverCutsACharacter) {
    EXPECT_EQ(columns("日本"), 4U);
    EXPECT_EQ(columns("e\u0301"), 1U);
    EXPECT_EQ(fitted("ab", 4), "ab  ");
    EXPECT_EQ(fitted("abcd", 4), "abcd");
    EXPECT_EQ(fitted("abcde", 4), "abc…");
    EXPECT_EQ(fitted("日本語", 4), "日… ");
    EXPECT_EQ(fitted("日本語", 5), "日本…");
    EXPECT_EQ(fitted("x", 0), "");
    for (std::size_t width = 0; width < 12; ++width) {
        const auto cut = fitted("añ日🙂e\u0301ö本", width);
        EXPECT_TRUE(text::isValidUTF8(cut));
        EXPECT_EQ(columns(cut), width);
    }
}

TEST(Tables, AlignAllButTheLastColumn) {
    EXPECT_EQ(tableLines({{"a", "b"}, {"日本", "c"}}), (std::vector<std::string>{"a     b", "日本  c"}));
    EXPECT_TRUE(tableLines({}).empty());
}

}}
