#include "formats/HeaderWords.h"
#include "formats/ListUnsubscribe.h"
#include "formats/MIMEHeaders.h"
#include "formats/MailDate.h"
#include "formats/MessageIDs.h"
#include "formats/StructuredValue.h"

#include "support/Hostile.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velmo { namespace {

using test::processorSeconds;
using test::repeated;

TEST(HeaderTest, FieldsAreUnfoldedAndJunkIsDropped) {
    const auto headers =
        MIMEHeaders::parse("\tno field yet\r\nFrom : a\r\n  b \r\n\tc\nno colon\n continues nothing\n"
                           "From: second\n\n ends with the empty line\nSubject:\n \n =?x?=\r\n: nameless\nLast: x");
    EXPECT_EQ(headers.fields,
              (std::vector<MIMEField>{
                  {"From", "a b c"}, {"From", "second"}, {"Subject", "=?x?="}, {"", "nameless"}, {"Last", "x"}}));
    EXPECT_EQ(headers.value("FROM"), "a b c");
    EXPECT_FALSE(headers.value("To"));
}

TEST(HeaderTest, StructuredValuesFollowTheirQuotesAndSections) {
    struct {
        const char* text;
        const char* value;
        StructuredValue::Parameters parameters;
    } const cases[] = {
        {"", "", {}},
        {" Text/HTML ;CharSet = \"UTF-8\" ; flag; =x", "text/html", {{"charset", "UTF-8"}, {"", "x"}}},
        {"a; b=\"x;\\\";y\"; c=\"", "a", {{"b", "x;\";y"}, {"c", "\""}}},
        {"a; b=\"open; c=d", "a", {{"b", "\"open; c=d"}}},
        {"a; b=1; b=2", "a", {{"b", "1"}}},
        {"a; f*=UTF-8''a%20b.pdf", "a", {{"f", "a b.pdf"}}},
        {"a; f*=iso-8859-1'fr'%E9t%e9%", "a", {{"f", "été%"}}},
        {"a; f*=''%C3%A9; g*=no%20charset; h*=x'y", "a", {{"f", "é"}, {"g", "no charset"}, {"h", "x'y"}}},
        {"a; f=old; f*=utf-8''new", "a", {{"f", "new"}}},
        {"a; f*1=\"c.pdf\"; f*0=\"ab\"", "a", {{"f", "abc.pdf"}}},
        {"a; f*0*=utf-8''%E8%AB; f*10=%41; f*2=%20.; f*1*=%8B", "a", {{"f", "請%20.%41"}}},
        {"a; f*0=x; f=old", "a", {{"f", "x"}}},
        {"a; f*x=1; f*99999999999999999999=2", "a", {{"f*x", "1"}, {"f*99999999999999999999", "2"}}},
    };
    for (const auto& c : cases) {
        const auto parsed = StructuredValue::parse(c.text);
        EXPECT_EQ(parsed.value, c.value);
        EXPECT_EQ(parsed.parameters, c.parameters) << c.text;
    }
}

TEST(HeaderTest, EncodedWordsAreDecoded) {
    struct {
        const char* text;
        const char* decoded;
    } const cases[] = {
        {"plain = ? text", "plain = ? text"},
        {"=?utf-8?B?R3LDvMOfZQ==?=", "Grüße"},
        {"=?UTF-8?b?R3LDvMOfZQ?= und mehr", "Grüße und mehr"},
        {"=?iso-8859-1*fr?q?caf=E9_=5F?=", "café _"},
        {"=?utf-8?Q?a?= \t =?utf-8?Q?b?= c =?utf-8?Q?d?=  ", "ab c d  "},
        {"=?utf-8?Q?a?= =?utf-8?X?b?=", "a =?utf-8?X?b?="},
        {"=?utf-8?X?b?= =?utf-8?Q?a?=", "=?utf-8?X?b?= a"},
        {"=?utf-8?B?!!?= x", "=?utf-8?B?!!?= x"},
        {"=?utf-8?B?A?=", "=?utf-8?B?A?="},
        {"=?utf-8?Q?unfinished", "=?utf-8?Q?unfinished"},
        {"=?utf-8?Q?"
         "?= =?utf-8?Q?=?=",
         "="},
        {"=? =?utf-8?Q?a?=", "=? a"},
        {"=?unknown-8bit?Q?gr=FC=DFe_=80?=", "grüße €"},
        {"=?iso-2022-jp?B?GyRCRnxLXBsoQg==?=", "日本"},
        {"=?utf-8?Q?x=E8?= =?utf-8?Q?=AB=8B?=", "x請"}, // a character cut in two
        {"=?utf-8?Q?x=E8?= =?iso-8859-1?Q?=E9?=", "xèé"},
        {"=?utf-8?B?w6k===?= =?utf-8?B?w6l?=", "éé"},
        {"=?iso-8859-1?Q?caf=E9 é?=", "café é"},
    };
    for (const auto& c : cases) EXPECT_EQ(decodeHeaderWords(c.text), c.decoded) << c.text;
}

TEST(HeaderTest, DatesOfEveryPattern) {
    struct {
        const char* text;
        const char* date;
    } const cases[] = {
        {"Sun, 1 Mar 2026 09:30:15 +0100", "2026-03-01T08:30:15Z"},
        {"01 mar 2026 9:30:15 -0330", "2026-03-01T13:00:15Z"},
        {"Tuesday, 1 March 2026 09:30 +0000", "2026-03-01T09:30:00Z"}, // the weekday is not checked
        {" Mon,  2\tMar 2026 09:30:15 -0800 (PST) (really)", "2026-03-02T17:30:15Z"},
        {"Mon, 2 Mar 2026 (a) 09:30:15 PDT", "2026-03-02T16:30:15Z"},
        {"2 Mar 2026 09:30:15 GMT", "2026-03-02T09:30:15Z"},
        {"2 Mar 2026 09:30:15 cest", "2026-03-02T07:30:15Z"},
        {"Mon, 2 Mar 2026 09:30 UT", "2026-03-02T09:30:00Z"},
        {"Mon, 2 Mar 2026 09:30:15 GMT+01:00", "2026-03-02T08:30:15Z"},
        {"Mon, 3 Feb 25 10:00:00 +0000", "2025-02-03T10:00:00Z"},
        {"Mon, 3 Feb 97 10:00:00 Z", "1997-02-03T10:00:00Z"},
        {"3 Feb 25 10:00:00 +0000", "2025-02-03T10:00:00Z"},
        {"3 Feb 97 10:00:00 PST", "1997-02-03T18:00:00Z"},
        {"Thu, 29 Feb 2024 23:59:60 +0000", "2024-03-01T00:00:00Z"},
    };
    for (const auto& c : cases) {
        const auto date = parseDate(c.text);
        ASSERT_TRUE(date) << c.text;
        EXPECT_EQ(iso8601(*date), c.date) << c.text;
    }
    for (const char* text :
         {"", "yesterday", "Mon, 3 Feb 125 10:00:00 +0000", "Sat, 29 Feb 2025 10:00:00 +0000",
          "Mon, 3 Feb 2025 24:00:00 +0000", "Mon, 3 Feb 2025 10:00:00", "Mon, 3 Feb 2025 10:00:00 +0000 x",
          "Mon, 3 Feb 2025 10:00:00 XYZ", "Mon, 3 Feb 2025 10:00 PST", "Mon, 3 Feb 2025 10:00:00 +0060",
          "Mon, 3 Feb 2025 (open 10:00:00 +0000", "Mon, 333 Feb 2025 10:00:00 +0000",
          "Mon, 3 Feb 20255 10:00:00 +0000"})
        EXPECT_FALSE(parseDate(text)) << text;
}

TEST(HeaderTest, MessageIDsAndListTargets) {
    EXPECT_EQ(parseMessageIDs("<a@b>junk<c@\r\n d> (<e@f>) <> <broken <g@h> i@j <open"),
              (std::vector<std::string>{"<a@b>", "<c@d>", "<e@f>", "<g@h>"}));
    struct {
        const char* list;
        const char* post;
        ListUnsubscribe expected;
    } const cases[] = {
        {"<mailto:leave@x>,\t<https://x/u?a>, <http://y>",
         "List-Unsubscribe=One-Click",
         {"https://x/u?a", "mailto:leave@x", true}},
        {"<http://x>, <https://y>", "List-Unsubscribe=One-Click", {"http://x", {}, false}},
        {"HTTPS://x", "", {"HTTPS://x", {}, false}},
        {"<ftp://x>, no url, <mailto:>, <https://a b>", "one-click", {{}, {}, false}},
        {"", "one-click", {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(listUnsubscribe({{{"List-unsubscribe", c.list}, {"List-Unsubscribe-Post", c.post}}}), c.expected)
            << c.list;
    EXPECT_EQ(listUnsubscribe({}), ListUnsubscribe{});
}

TEST(HeaderTest, HostileValuesTakeLinearTime) {
    constexpr std::size_t many = 100'000;
    const std::string words[] = {repeated("=?", many),         repeated("=?a?B?", many) + "?=",
                                 repeated("=?a?B?A", many),    repeated("=?a?X?", many) + "?=",
                                 repeated("=?a?Q?b?= ", many), repeated("=?utf-8?B?", many) + repeated("A", many)};
    const auto work = [&] {
        for (const auto& text : words) EXPECT_FALSE(decodeHeaderWords(text).empty());
        EXPECT_FALSE(parseDate(repeated("(", many)));
        EXPECT_FALSE(parseDate(repeated("()", many) + repeated(" ", many)));
        EXPECT_TRUE(parseMessageIDs(repeated("<a", many)).empty());
        EXPECT_EQ(parseMessageIDs(repeated("<a>", many)).size(), many);
    };
    EXPECT_LT(processorSeconds(work), 10);
}

}}
