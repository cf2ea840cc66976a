#include "formats/Entities.h"
#include "formats/HTMLText.h"
#include "formats/Preview.h"
#include "formats/TextDecoding.h"
#include "formats/TransferEncoding.h"
#include "platform/RegularExpression.h"

#include "base/Text.h"
#include "support/Hostile.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

namespace velmo { namespace {

using test::processorSeconds;
using test::repeated;

using namespace std::string_literals;

TEST(TextTest, TransferEncodingsAreDecoded) {
    struct {
        const char* label;
        std::string data, decoded;
    } const cases[] = {
        {"7bit", "a=41\r\n", "a=41\r\n"},
        {" Base64\t", "QUJD\r\nREVG\r\n", "ABCDEF"},
        {"base64", "Q U-J*D\tRA==", "ABCD"},
        {"base64", "QQ==QUI=", "A"},
        {"base64", "QUJD=", "ABC"},
        {"base64", "QUJDRA", "ABCD"},
        {"base64", "QUJDR", "ABC"},
        {"base64", "QUJDR===", "ABC"},
        {"base64", "Q=JD", ""},
        {"base64", "!?\x80\n", ""},
        {"Quoted-Printable", "=c3=A9=\n=\r\n_", "é_"},
        {"quoted-printable", "=G1 =1 ==41 =\r= = x=4", "=G1 =1 =A =\r= = x=4"},
        {"quoted-printable", "=", "="},
        {"quoted-printable", "a=\n", "a"},
    };
    for (const auto& c : cases) EXPECT_EQ(decodeTransfer(c.data, c.label), c.decoded) << c.label << ": " << c.data;
    std::mt19937 random(7);
    for (std::size_t size = 0; size < 300; ++size) {
        Bytes bytes(size, '\0');
        for (char& c : bytes) c = static_cast<char>(random());
        std::string lines = text::base64(bytes);
        for (std::size_t at = random() % 80; at < lines.size(); at += 1 + random() % 80) lines.insert(at, "\r\n");
        EXPECT_EQ(decodeLenientBase64(lines), bytes);
    }
}

TEST(TextTest, TextIsDecodedByTheFirstCharsetThatFits) {
    struct {
        const char* charset;
        std::string data;
        const char* text;
    } const cases[] = {
        {"\"ISO-8859-2\" ", "\xB3", "ł"},
        {"utf8", "é", "é"},
        {"ks_c_5601-1987", "\xB0\xA1", "가"},
        {"unknown-8bit", "é", "é"},
        {"8bit", "\xE9\x80", "é€"},
        {"", "\xE9", "é"},
        {"us-ascii", "é", "é"},
        {"shift_jis", "é\xFF", "Ã©ÿ"},
        {"utf-8", "\xE9t\xE9", "été"},
        {"utf-8", "日本\xE6\x81", "日本\uFFFD"}, // 0x81 is nothing in windows-1252
        {"utf-8", "größer \xFC", "größer \uFFFD"},
        {"windows-1252", "größer", "größer"},
        {"iso-8859-1",
         "gr\xF6\xDF"
         "er",
         "größer"},
        {"utf-16", std::string("h\0i\0", 4), "hi"},
        {"utf-16", std::string("\0h\0i", 4), "hi"},
    };
    for (const auto& c : cases) EXPECT_EQ(decodeText(c.data, c.charset), c.text) << c.charset;
    for (const char* label : {"", "\" \"", "x-unknown", "X-Unknown", "nonsense"})
        EXPECT_FALSE(charsetEncoding(label)) << label;
}

TEST(TextTest, EntitiesAreDecoded) {
    struct {
        const char* text;
        const char* decoded;
    } const cases[] = {
        {"a &amp;lt; b", "a &lt; b"},
        {"&#x1F600;&#X41;&#233;", "😀Aé"},
        {"&AMP;&Nbsp;&shy;&zwnj;&hellip;", "& …"},
        {"&#xD800;&#1114112;&#x;&#;&#12a;&#+65;&;", "&#xD800;&#1114112;&#x;&#;&#12a;&#+65;&;"},
        {"&notanentity; & &lt", "&notanentity; & &lt"},
        {"&#x0000000000000000000000000000000041;", "&#x0000000000000000000000000000000041;"}, // too far off
        {"&#0;&Eacute;&eacute;&CounterClockwiseContourIntegral;&rcub;", "\uFFFDÉé∳}"},
        {"&#x00000041;&&gt;", "A&>"},
    };
    for (const auto& c : cases) EXPECT_EQ(decodeEntities(c.text), c.decoded);
}

/// The conversion as a list of replacements.
std::string htmlByExpressions(std::string text) {
    static const struct {
        RegularExpression pattern;
        const char* replacement;
    } markup[] = {
        {RegularExpression("(?s)<!--.*?-->"), ""},
        {RegularExpression("(?is)<(script|style|head)[^>]*>.*?</\\1>"), ""},
        {RegularExpression("(?is)<(script|style|head)\\b[^>]*>.*"), ""},
        {RegularExpression("(?i)<br\\s*/?>"), "\n"},
        {RegularExpression("(?i)</(p|div|tr|li|h[1-6])>"), "\n"},
        {RegularExpression("(?s)<[^>]+>"), ""},
    };
    for (const auto& step : markup) text = step.pattern.replacedAll(text, step.replacement);
    static const RegularExpression blanks("[ \\t]+"), emptyLines("\\n\\s*\\n+");
    text = emptyLines.replacedAll(blanks.replacedAll(decodeEntities(text), " "), "\n\n");
    return std::string(text::trimmedUnicode(text));
}

TEST(TextTest, HTMLBecomesWhatTheExpressionsMakeOfIt) {
    EXPECT_EQ(
        htmlToPlainText("<head><title>x</title></head><p>a <b>b</b>&nbsp;c</p><div>d<br/>e</div><style>never closed"),
        "a b c\nd\ne");
    constexpr std::array<std::string_view, 40> pieces{
        "<",       ">",        "<>",        "</",         "<!--",   "-->",      "--",          "!",
        "<script", "<SCRIPT>", "</script>", "</Script >", "<style", "</style>", "<head",       "<header>",
        "</head>", "head",     "script>",   "<br",        "<BR />", "<br\n>",   "<br\u2003/>", "/>",
        "<p>",     "</p>",     "</H3>",     "</h7>",      "</li>",  " ",        "\t",          "\n",
        "\r\n",    "\u00A0",   "x",         "é",          "&lt;",   "&nbsp;",   "&",           ";"};
    std::mt19937 random(11);
    for (int i = 0; i < 20'000; ++i) {
        std::string html;
        for (std::size_t count = random() % 30; count > 0; --count) html += pieces[random() % pieces.size()];
        ASSERT_EQ(htmlToPlainText(html), htmlByExpressions(html)) << html;
    }
}

TEST(TextTest, PreviewsHoldNoStyleAndNoMarkup) {
    struct {
        const char* text;
        const char* preview;
    } const cases[] = {
        {"body { color: red } Hello", "Hello"},
        {"a { b } Hello", "a { b } Hello"},
        {" @charset \"x\"; @import url(y);\n@media (x) { p.q > a:hover { c: d } }\n.größe{e:f}Hello", "Hello"},
        {"@import never ends", "@import never ends"},
        {"p { c: d", "p { c: d"},
        {"p { c: d } q { x", "q { x"},
        {"Is this right? {a:b} yes", "Is this right? {a:b} yes"}, // "?" is in no selector
        {"{a:b} x", "{a:b} x"},
        {"  two\u00A0\n blanks ", "two blanks"},
        {"<P>One</P><p>two &amp; three <a href=\"cut", "One two & three"},
        {"1 < 2 &amp; 3 > 2", "1 < 2 & 3 > 2"},
        {"less < more", "less"},
        {"&lt;b&gt; &quot;", "<b> \""},
        {"&#112; { a: b } x", "x"},
    };
    for (const auto& c : cases) EXPECT_EQ(cleanedPreview(c.text), c.preview) << c.text;
    EXPECT_EQ(cleanedPreview(std::string(200, 'a') + "{b:c}x"), "x");
    EXPECT_EQ(cleanedPreview(std::string(201, 'a') + "{b:c}x"), std::string(201, 'a') + "{b:c}x");
}

TEST(TextTest, SnippetsLeaveQuotesOutAndEndBetweenCharacters) {
    EXPECT_EQ(snippet("Yes.\r\n\r\n> Really?\n \t>> Really.\nRegards > all", "<p>no</p>"), "Yes. Regards > all");
    EXPECT_EQ(snippet("", "<p>html</p>"), "");
    EXPECT_EQ(snippet({}, "<p>a</p>\n&gt; quoted<br>b"), "a b");
    EXPECT_EQ(snippet({}, {}), "");
    EXPECT_EQ(snippet(repeated("😀", 300), {}), repeated("😀", snippetLength));
    EXPECT_TRUE(text::isValidUTF8(snippet("x\xF0\x9F\x98" + repeated("\u20AC", 300), {}).substr(4)));
}

TEST(TextTest, HostileTextsTakeLinearTime) {
    constexpr std::size_t many = 50'000;
    std::vector<std::string> texts{repeated("<!--", many),
                                   repeated("<script", many),
                                   repeated("<script>", many) + "</head>",
                                   repeated("<head><style>", many),
                                   repeated("</scrip", many),
                                   repeated("<br ", many),
                                   "<br" + repeated(" ", many),
                                   repeated("\n ", many) + "x",
                                   repeated("&#x", many),
                                   repeated("<script>", many) + repeated("</script", many),
                                   repeated("@import;", many),
                                   repeated("a{b:c}", many),
                                   "a" + repeated("{", many),
                                   repeated("< \n", many),
                                   repeated(">\n", many)};
    for (const auto& text : texts) {
        const auto work = [&] {
            EXPECT_LE(htmlToPlainText(text).size(), text.size());
            EXPECT_LE(snippet(text, {}).size(), text.size());
        };
        EXPECT_LT(processorSeconds(work), 5) << text.substr(0, 20);
    }
}

}}
