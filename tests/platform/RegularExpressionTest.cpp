#include "platform/RegularExpression.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

namespace velmo { namespace {

using Case = RegularExpression::Case;

TEST(RegularExpressionTest, MatchesUnicodeTextWithAndWithoutCase) {
    struct {
        const char* pattern;
        Case letterCase;
        const char* text;
        bool matches;
    } const cases[] = {
        {"un-?subscribe", Case::ignored, "Click to UNSUBSCRIBE now", true},
        {"un-?subscribe", Case::sensitive, "Click to UNSUBSCRIBE now", false},
        {"\\bgrüße\\b", Case::ignored, "Viele GRÜSSE, viele GRÜßE!", true},
        {"\\bcaf\\b", Case::sensitive, "café", false},
        {"^a\\sb$", Case::sensitive, "a\u2003b", true},
        {"a.c", Case::sensitive, "a\xFF\x63", true}, // broken bytes count as one character
        {"", Case::sensitive, "", true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(RegularExpression(c.pattern, c.letterCase).matches(c.text), c.matches) << c.pattern;
    EXPECT_FALSE(RegularExpression("x").matches(std::string_view{}));
    EXPECT_THROW(RegularExpression("(unclosed"), std::invalid_argument);
}

TEST(RegularExpressionTest, FindsGroupsAndReplaces) {
    const RegularExpression pair("(\\w+)=(?:(\\d+)|(\\w+))");
    const auto match = pair.find("ä; key=word", 0);
    ASSERT_TRUE(match);
    ASSERT_EQ(match->groups.size(), 4U);
    EXPECT_EQ(match->begin(), 4U);
    EXPECT_FALSE(match->groups[2]);
    EXPECT_EQ(match->groups[3]->begin, 8U);
    EXPECT_FALSE(pair.find("a=1", 4));
    EXPECT_FALSE(pair.find("ä=1", 1)); // inside a character
    EXPECT_EQ(RegularExpression("\\s+").replacedAll(" a \u00A0\n b", "_"), "_a_b");
    EXPECT_EQ(RegularExpression("x*").replacedAll("äxxb", "-"), "-ä--b-");
    EXPECT_EQ(RegularExpression("x*").replacedAll("", "-"), "-");
}

TEST(RegularExpressionTest, GivesUpOnCatastrophicBacktracking) {
    const std::string hostile(50'000, 'a');
    EXPECT_FALSE(RegularExpression("(a+)+b$").matches(hostile));
    EXPECT_FALSE(RegularExpression("^(([a-z])+.)+[A-Z]([a-z])+$").matches(hostile));
}

TEST(RegularExpressionTest, OnePatternServesManyThreads) {
    const RegularExpression pattern("(\\d+)-(\\d+)");
    std::atomic<int> right = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            const std::string text = std::string(static_cast<std::size_t>(t) * 7, ' ') + "10-20";
            for (int i = 0; i < 2000; ++i)
                if (const auto match = pattern.find(text); match && match->begin() == static_cast<std::size_t>(t) * 7)
                    ++right;
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(right, 8000);
}

}}
