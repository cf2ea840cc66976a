#include "platform/Charset.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace velmo { namespace {

using namespace std::string_literals;

TEST(CharsetTest, LabelsMeanWhatSendersMean) {
    struct {
        const char* label;
        std::string bytes;
        const char* text;
    } const cases[] = {
        {"us-ascii", "plain", "plain"},
        {"UTF-8", "Gr\xC3\xBC\xC3\x9F\x65", "Grüße"},
        {"ISO-8859-1", "\x93quoted\x94 \x80 \xE9", "“quoted” € é"},
        {"latin1", "\x81\xE9", "\u0081é"},
        {"windows-1252", "\x96", "–"},
        {"iso8859-15", "\xA4", "€"},
        {"iso-8859-16", "\xAA\xFE\xA4", "Șț€"},
        {"iso-8859-9", "\xDD\xFE\x85", "İş…"},
        {"win-1251", "\xCF\xF0\xE8\xE2\xE5\xF2", "Привет"},
        {"koi8-u", "\xA4\xA6\xA7", "єії"},
        {"tis-620", "\xA1\x85", "ก…"},
        {"macintosh", "\x8E\xD2", "é“"},
        {"gb2312", "\xC4\xE3\xE9\x46\x81\x30\x84\x36", "你镕¥"},
        {"gbk", "\xE9\x46", "镕"},
        {"big5", "\xA7\x41\xA6\x6E\xF9\xD6", "你好碁"},
        {"Shift_JIS", "\x93\xFA\x87\x40\xB1~\\", "日①ｱ~\\"},
        {"cp932", "\xED\x40", "纊"},
        {"euc-jp", "\xC6\xFC\xCB\xDC", "日本"},
        {"iso-2022-jp", "\x1B$BF|K\\\x1B(B abc \x1B(I1\x1B(B", "日本 abc ｱ"},
        {"iso-2022-jp-ms", "\x1B$B-!\x1B(B", "①"},
        {"iso-2022-jp", "\x1B$BF|\r\nabc", "日\r\nabc"},
        {"iso-2022-jp-2", "\x1B$AA=\x1B(B", "两"},
        {"euc-kr", "\xB0\xA1\x8C\x63", "가똠"},
        {"ks_c_5601-1987", "\xB0\xA1", "가"},
        {"iso-2022-kr", "\x1B$)C\x0E\x30\x21\x0F", "가"},
        {"utf-7", "A+ImIDkQ.", "A≢Α."},
        {"utf-16le", "a\0\x3D\xD8\x00\xDE"s, "a😀"},
        {"utf-16", "\xFE\xFF\0a"s, "a"},
    };
    for (const auto& c : cases) {
        const auto charset = Charset::named(c.label);
        ASSERT_TRUE(charset) << c.label;
        EXPECT_EQ(charset->decoded(c.bytes).value_or(""), c.text) << c.label;
    }
}

TEST(CharsetTest, RefusesWhatACharsetDoesNotDefine) {
    struct {
        const char* label;
        std::string bytes;
    } const cases[] = {
        {"us-ascii", "caf\xE9"},   {"utf-8", "caf\xE9"},       {"utf-8", "\xED\xA0\x80"},
        {"utf-8", "\xC0\x80"},     {"gb2312", "\xC4"},         {"gb2312", "\xFF\xFF"},
        {"shift_jis", "\x81\xFF"}, {"euc-kr", "\xB0\x20"},     {"big5", "\xFF\x41"},
        {"iso-2022-jp", "\xE9"},   {"iso-2022-jp", "\x1B$BF"}, {"iso-2022-jp", "\x1B$B\x7E\x7E"},
        {"utf-16le", "\x3D\xD8"},  {"iso-8859-8", "\xBF"},     {"iso-8859-7", "\xFF"},
    };
    for (const auto& c : cases) EXPECT_FALSE(Charset::named(c.label)->decoded(c.bytes)) << c.label;
    for (const char* byte : {"\x81", "\x8D", "\x8F", "\x90", "\x9D"})
        EXPECT_FALSE(Charset::windows1252().decoded(byte));
    EXPECT_EQ(Charset::windows1252().decoded("\x80\x8E\xFF"), "€Žÿ");
}

TEST(CharsetTest, UnknownLabelsAreAbsent) {
    for (const auto& label :
         std::vector<std::string>{""s, "x-nonsense"s, "utf-8,version=1"s, "iso-2022-jp\0"s, "../../etc/passwd"s,
                                  "johab"s, std::string(100'000, 'a'), "ütf-8"s, "swaplfnl"s, "utf-8 "s})
        EXPECT_FALSE(Charset::named(label)) << label.substr(0, 20);
}

TEST(CharsetTest, ThreadsDoNotShareConverterState) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            const auto charset = Charset::named("iso-2022-kr");
            for (int i = 0; i < 500; ++i) EXPECT_EQ(charset->decoded("\x1B$)C\x0E\x30\x21\x0F"), "가");
        });
    for (auto& thread : threads) thread.join();
}

// The buffer between the converter and the text must not lose a character that lies across its end.
TEST(CharsetTest, LongTextIsWhole) {
    for (std::size_t shift = 0; shift < 3; ++shift) {
        std::string bytes(shift, 'x'), text(shift, 'x');
        for (int i = 0; i < 5000; ++i) {
            bytes += "\x94\x39\xDA\x33"; // beyond the basic plane: two units of UTF-16
            text += "💩";
        }
        EXPECT_EQ(Charset::named("gb18030")->decoded(bytes), text);
    }
}

}}
