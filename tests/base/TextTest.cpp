#include "base/Text.h"

#include "base/Date.h"
#include "base/UUID.h"

#include <gtest/gtest.h>

namespace velmo { namespace {

TEST(UTF8, TellsWellFormedFromIllFormedAndRepairsEachSequenceOnce) {
    struct Case {
        const char* what;
        std::string bytes;
        std::string repaired;
    };
    const std::string bad = "\uFFFD";
    const Case cases[]{
        {"ascii", "plain text, longer than one word of eight", "plain text, longer than one word of eight"},
        {"two to four bytes", "ä€𝄞", "ä€𝄞"},
        {"lone continuation", "a\x80z", "a" + bad + "z"},
        {"overlong slash", "\xC0\xAF", bad + bad},
        {"overlong three", "\xE0\x80\xAF", bad + bad + bad},
        {"surrogate", "\xED\xA0\x80", bad + bad + bad},
        {"beyond unicode", "\xF4\x90\x80\x80", bad + bad + bad + bad},
        {"cut off at the end", "x\xE2\x82", "x" + bad},
        {"cut off before ascii", "\xF0\x9F\x98z", bad + "z"},
        {"good after bad", "\xFFé", bad + "é"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(text::isValidUTF8(c.bytes), c.bytes == c.repaired) << c.what;
        EXPECT_EQ(text::repairedUTF8(c.bytes), c.repaired) << c.what;
        EXPECT_TRUE(text::isValidUTF8(text::repairedUTF8(c.bytes))) << c.what;
    }
}

TEST(UTF8, CodePointsRoundTripAndCutsNeverSplitOne) {
    std::string all;
    const std::vector<char32_t> points{0x24, 0x7FF, 0x800, 0xFFFF, 0x10000, 0x10FFFF};
    for (const auto point : points) text::appendUTF8(all, point);
    std::size_t position = 0;
    for (const auto point : points) EXPECT_EQ(text::nextCodePoint(all, position), point);
    EXPECT_EQ(position, all.size());
    EXPECT_EQ(text::firstCodePoints("aé€𝄞b", 3), "aé€");
    EXPECT_EQ(text::firstCodePoints("aé", 9), "aé");
    EXPECT_EQ(text::trimmedUnicode("\u00A0\u2003 a b\u3000\n"), "a b");
    EXPECT_EQ(text::trimmedUnicode("\u3000\u3000"), "");
}

TEST(Numbers, AreWholeAndFit) {
    EXPECT_EQ(text::parseUnsigned32("4294967295"), 4294967295U);
    for (const char* bad : {"", "4294967296", "-1", "+1", " 1", "1 ", "0x1", "1.0"})
        EXPECT_EQ(text::parseUnsigned32(bad), std::nullopt) << bad;
    EXPECT_EQ(text::parseSigned64("-42"), -42);
    EXPECT_EQ(text::parseSigned64("+-42"), std::nullopt);
}

TEST(Base64, RoundTripsAndRefusesWhatIsNotWhole) {
    std::string bytes;
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(text::decodedBase64(text::base64(bytes)), bytes);
        bytes += static_cast<char>(i * 7);
    }
    for (const char* bad : {"QUI", "QUI=QUI=", "QU=I", "====", "QU I"})
        EXPECT_EQ(text::decodedBase64(bad), std::nullopt) << bad;
}

TEST(SplitAndTrim, KeepEmptyPieces) {
    EXPECT_EQ(text::split("a//b/", '/').size(), 4U);
    EXPECT_EQ(text::split("", '/').size(), 1U);
    EXPECT_EQ(text::trimmed(" \t\r\n"), "");
    EXPECT_EQ(text::replacedAll("a\"b\"", "\"", "\\\""), "a\\\"b\\\"");
}

TEST(Dates, RoundTripThroughISO8601) {
    for (const char* written : {"1970-01-01T00:00:00Z", "2024-02-29T23:59:59Z", "0001-01-01T00:00:00Z",
                                "9999-12-31T23:59:59.999Z", "1969-12-31T23:59:59.001Z"}) {
        const auto date = dateFromISO8601(written);
        ASSERT_TRUE(date) << written;
        EXPECT_EQ(iso8601(*date), written);
    }
    for (const char* bad : {"", "2023-02-29T00:00:00Z", "2024-01-01T24:00:00Z", "2024-01-01 00:00:00Z",
                            "2024-01-01T00:00:00", "2024-01-01T00:00:00.1Z", "2024-1-1T00:00:00ZZZZZ"})
        EXPECT_EQ(dateFromISO8601(bad), std::nullopt) << bad;
}

TEST(Dates, KeepTheZone) {
    const auto date = dateFrom({2026, 3, 1, 0, 30, 0, std::chrono::minutes{330}});
    ASSERT_TRUE(date);
    EXPECT_EQ(iso8601(*date), "2026-02-28T19:00:00Z");
    EXPECT_EQ(civilTime(*date, std::chrono::minutes{-60}).day, 28);
    EXPECT_EQ(monthNumber("SEP"), 9);
    EXPECT_EQ(monthNumber("sept"), std::nullopt);
}

TEST(UUIDs, ReadBothCasesAndWriteUpperCase) {
    const auto id = UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(id);
    EXPECT_EQ(id->text(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    for (const char* bad : {"", "E621E1F8C36C495A93FC0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5G",
                            "E621E1F8-C36C-495A-93FC0-C247A3E6E5F"})
        EXPECT_EQ(UUID::parse(bad), std::nullopt) << bad;
    const UUID fresh = UUID::random();
    EXPECT_EQ(fresh.text()[14], '4');
    EXPECT_NE(fresh, UUID::random());
    EXPECT_EQ(UUID::parse(fresh.text()), fresh);
}

}}
