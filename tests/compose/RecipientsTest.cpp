#include "compose/AddressChips.h"
#include "compose/MailtoURL.h"
#include "compose/ReplyRecipients.h"
#include "support/Hostile.h"

#include <gtest/gtest.h>

namespace velmo { namespace {

std::string listed(const std::vector<IMAPAddress>& addresses) {
    std::string list;
    for (const auto& address : addresses) list += (list.empty() ? "" : ", ") + address.formatted();
    return list;
}

IMAPAddress plain(std::string email) {
    return {std::nullopt, std::move(email)};
}

TEST(MailtoURL, takesRecipientsSubjectAndBody) {
    struct Case {
        std::string_view url, to, cc, bcc, subject, body;
    };
    const Case cases[] = {
        {"mailto:ana@example.org", "ana@example.org", "", "", "", ""},
        {"MAILTO:ana@example.org,Ben%20%3Cben%40example.net%3E?Subject=a+b%20c&BODY=x%0D%0Ay%0Az%0Dw",
         "ana@example.org, Ben <ben@example.net>", "", "", "a+b c", "x\ny\nz\nw"},
        {"mailto:?bcc=d@example.org&cc=c@example.org&to=b@example.org&cc=e@example.org", "b@example.org",
         "c@example.org, e@example.org", "d@example.org", "", ""},
        {"mailto:a@b.c?to=A@B.C,d@e.f", "a@b.c, d@e.f", "", "", "", ""},
        {"mailto:a@b.c?attach=/etc/passwd&attachment=/etc/passwd&from=x@y.z&in-reply-to=x&subject", "a@b.c", "", "", "",
         ""},
        {"mailto:a@b.c?subject=x%0D%0ABcc:%20evil@b.c%00&subject=y&body=%00a%09%7Fb", "a@b.c", "", "",
         "x Bcc: evil@b.c ", "a\tb"},
        {"mailto:a%0D%0Ab@b.c,%0D%0Ad@e.f", "d@e.f", "", "", "", ""},
        {"mailto:%22a%2Cb%22%20%3Ca@b.c%3E?subject=100%&body=%E2%82%AC%ff%4", "\"a,b\" <a@b.c>", "", "", "100%",
         "€\uFFFD%4"},
        {"mailto:no address?subject=a%3Db=c&&=#cc=x@y.z", "", "", "", "a=b=c", ""},
        {"mailto:", "", "", "", "", ""},
    };
    for (const auto& c : cases) {
        const auto url = MailtoURL::parse(c.url);
        ASSERT_TRUE(url) << c.url;
        EXPECT_EQ(listed(url->to), c.to) << c.url;
        EXPECT_EQ(listed(url->cc), c.cc) << c.url;
        EXPECT_EQ(listed(url->bcc), c.bcc) << c.url;
        EXPECT_EQ(url->subject, c.subject) << c.url;
        EXPECT_EQ(url->body, c.body) << c.url;
    }
    for (const char* other : {"", "mailto", "https://a.example", "ana@example.org"})
        EXPECT_FALSE(MailtoURL::parse(other)) << other;
}

TEST(MailtoURL, isLinearInItsInput) {
    for (const std::string_view part : {"&cc=a@b.c", "&subject=", "%", "a@b.c,", "%2", "&body=x", "\"<,", "?&="}) {
        const std::string url = "mailto:?x" + test::repeated(part, 200'000 / part.size());
        EXPECT_LT(test::processorSeconds([&] { MailtoURL::parse(url); }), 5) << part;
    }
}

TEST(AddressChips, takeWholeAddressesOnce) {
    std::vector<IMAPAddress> chips{{"Ana", "Ana@example.org"}};
    std::string typed = "ana@EXAMPLE.org; Ben <ben@example.net>, nobody, BEN@example.net";
    EXPECT_TRUE(commitTyped(typed, chips));
    EXPECT_EQ(typed, "");
    EXPECT_EQ(listed(chips), "Ana <Ana@example.org>, Ben <ben@example.net>");

    typed = "ana@example.org";
    EXPECT_TRUE(commitTyped(typed, chips));
    EXPECT_EQ(typed, "");
    typed = "ana@exam";
    EXPECT_FALSE(commitTyped(typed, chips));
    EXPECT_EQ(typed, "ana@exam");
    EXPECT_EQ(chips.size(), 2U);

    const std::vector<IMAPAddress> bad{plain("a b@c.d"), plain("a@b")}, none;
    EXPECT_EQ(invalidAddresses({chips, none, bad}), (std::vector<std::string>{"a b@c.d", "a@b"}));
}

TEST(ReplyRecipients, areThoseOfTheOriginal) {
    MessageRecord original;
    original.fromName = "Ana";
    original.fromEmail = "ana@example.org";
    original.to = {plain("ME@example.org"), {"Ben", "Ben@example.net"}, plain("")};
    original.cc = {plain("ANA@example.org"), plain("ben@example.net"), plain("cleo@example.com")};
    const std::string_view own = "Me@Example.org";

    EXPECT_EQ(replyRecipients(original, ReplyScope::sender, own), (ReplyRecipients{{{"Ana", "ana@example.org"}}, {}}));
    EXPECT_EQ(replyRecipients(original, ReplyScope::all, own),
              (ReplyRecipients{{{"Ana", "ana@example.org"}}, {{"Ben", "Ben@example.net"}, plain("cleo@example.com")}}));

    original.replyTo = {plain("list@example.org"), plain("Cleo@example.com")};
    EXPECT_EQ(replyRecipients(original, ReplyScope::all, own),
              (ReplyRecipients{original.replyTo, {{"Ben", "Ben@example.net"}, plain("ANA@example.org")}}));

    EXPECT_EQ(foreignReplyTo(original), (std::vector{plain("Cleo@example.com")}));
    original.fromEmail = "ana@mail.example.org";
    original.replyTo = {plain("list@EXAMPLE.org"), plain("x@notexample.org"), plain("y@lists.mail.example.org")};
    EXPECT_EQ(foreignReplyTo(original), (std::vector{plain("x@notexample.org")}));

    original.fromEmail = "me@example.org";
    EXPECT_EQ(replyRecipients(original, ReplyScope::all, own), followUpRecipients(original));

    original.replyTo = {plain("")};
    original.fromEmail = "";
    EXPECT_TRUE(replyRecipients(original, ReplyScope::sender, own).to.empty());
    EXPECT_EQ(listed(followUpRecipients(original).to), "ME@example.org, Ben <Ben@example.net>");
}

TEST(ReplyThread, continuesTheConversation) {
    MessageRecord original;
    original.references = {"<a@x>", "<b@x>"};
    EXPECT_EQ(replyThread(original), (ReplyThread{std::nullopt, {"<a@x>", "<b@x>"}}));
    original.messageID = "<c@x>";
    EXPECT_EQ(replyThread(original), (ReplyThread{"<c@x>", {"<a@x>", "<b@x>", "<c@x>"}}));
}

}}
