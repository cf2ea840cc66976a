#include "compose/Quotes.h"
#include "support/EnvironmentGuard.h"

#include <ctime>
#include <gtest/gtest.h>

namespace velmo { namespace {

using test::EnvironmentGuard;

class Quotes : public ::testing::Test {
  protected:
    Quotes() {
        tzset();
        record.fromName = "Ana Marques";
        record.fromEmail = "ana@example.org";
        record.subject = "Plans";
        record.date = *dateFromISO8601("2026-11-22T09:41:00Z");
    }

    EnvironmentGuard zone{"TZ", "UTC"}, locale{"LC_ALL", "en_US.UTF-8"};
    MessageRecord record;
    ParsedMessage message;
};

TEST_F(Quotes, prefixSubjectsOnce) {
    struct Case {
        std::string_view prefix, subject, expected;
    };
    const Case cases[] = {
        {"Re:", "hello", "Re: hello"},
        {"Re:", "Re: hello", "Re: hello"},
        {"Re:", " RE:hello ", "RE:hello"},
        {"Re:", "AW: x", "Re: AW: x"},
        {"Re:", "", "Re: "},
        {"Re:", "Re", "Re: Re"},
        {"Fwd:", "Re: x", "Fwd: Re: x"},
        {"Fwd:", "fwd: x", "fwd: x"},
    };
    for (const auto& c : cases) EXPECT_EQ(prefixed(c.prefix, c.subject), c.expected);
}

TEST_F(Quotes, cleanTheText) {
    EXPECT_EQ(cleanedForQuoting("\n\n a\u200B \r\n\u200B\n \t\n\u00A0b\n\n\n"), "\na\n\nb");
    EXPECT_EQ(cleanedForQuoting(" \n\n"), "");

    message.html = "<p>from <b>HTML</b></p>";
    EXPECT_EQ(quotableText(message), "from HTML");
    message.plainText = " \n\u200B\n";
    EXPECT_EQ(quotableText(message), "from HTML");
    message.plainText = "plain";
    EXPECT_EQ(quotableText(message), "plain");
}

TEST_F(Quotes, answerALine) {
    message.plainText = "Hi\n\n> earlier\n";
    EXPECT_EQ(replyQuote(record, message),
              "On Nov 22, 2026, 9:41 AM, Ana Marques <ana@example.org> wrote:\n> Hi\n>\n> > earlier");
    record.fromName = " \n";
    EXPECT_EQ(replyQuote(record, {}), "On Nov 22, 2026, 9:41 AM, ana@example.org wrote:\n>");
    record.fromName = "An{}\n>a";
    EXPECT_EQ(senderLine(record), "An{} >a <ana@example.org>");
}

TEST_F(Quotes, forwardWithTheHeadersThatThereAre) {
    message.plainText = "Hi\n> x";
    EXPECT_EQ(forwardQuote(record, message),
              "---------- Forwarded message ----------\nFrom: Ana Marques <ana@example.org>\n"
              "Date: Sunday, November 22, 2026 at 9:41 AM\nSubject: Plans\n\nHi\n> x");
    record.to = {{"Ben, Jr.", "ben@example.net"}, {std::nullopt, "cleo@example.com"}};
    record.cc = {{std::nullopt, "dan@example.com"}};
    record.subject = "Two\r\nlines";
    const std::string quote = forwardQuote(record, {});
    EXPECT_NE(quote.find("\nSubject: Two lines\nTo: \"Ben, Jr.\" <ben@example.net>, cleo@example.com\n"
                         "Cc: dan@example.com\n\n"),
              std::string::npos)
        << quote;
}

}}
