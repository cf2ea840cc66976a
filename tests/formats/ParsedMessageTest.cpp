#include "formats/ParsedMessage.h"

#include "base/Text.h"
#include "support/Hostile.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velmo { namespace {

using test::processorSeconds;
using test::repeated;

using namespace std::string_literals;

TEST(ParsedMessageTest, LineEndsMakeNoDifferenceToTheStructure) {
    const std::string message = "Subject: a\n\tb\nContent-Type: multipart/mixed; boundary=\"x\"\n\npreamble\n"
                                "--x\n \t\nfirst\n--x\nContent-Type: image/png\n\nPNG\n--x--\nepilogue\n--x\nno part\n";
    std::string mixed = message;
    for (std::size_t i = 0, count = 0; i < mixed.size(); ++i)
        if (mixed[i] == '\n' && count++ % 2 == 0) mixed.insert(i++, "\r");
    for (const auto& text : {message, text::replacedAll(message, "\n", "\r\n"), mixed}) {
        const auto parsed = ParsedMessage::parse(text);
        EXPECT_EQ(parsed.headers.value("SUBJECT"), "a b");
        EXPECT_EQ(parsed.plainText, "first");
        ASSERT_EQ(parsed.attachments.size(), 1U);
        EXPECT_EQ(parsed.attachments[0], (MIMEAttachment{"attachment.png", "image/png", {}, false, "PNG"}));
    }
}

TEST(ParsedMessageTest, AnyBytesAreAMessage) {
    EXPECT_EQ(ParsedMessage::parse("").plainText, "");
    const auto headOnly = ParsedMessage::parse("Subject: x\nTo: \xFF");
    EXPECT_EQ(headOnly.headers.fields, (std::vector<MIMEField>{{"Subject", "x"}, {"To", "ÿ"}}));
    EXPECT_EQ(headOnly.plainText, "");
    // An empty line at the very beginning does not end the head.
    EXPECT_EQ(ParsedMessage::parse("\nSubject: x\n\nbody").plainText, "body");
    EXPECT_EQ(ParsedMessage::parse("\n\nbody").plainText, "body");
}

TEST(ParsedMessageTest, APartWithoutAHeadIsText) {
    const auto bounce =
        ParsedMessage::parse("Content-Type: multipart/report; boundary=b\n\n--b\n\nYour message could not "
                             "be delivered.\n\nBob: no such person\n--b\nContent-Type: text\n\nmore\n--b--\n");
    EXPECT_EQ(bounce.plainText, "Your message could not be delivered.\n\nBob: no such person\nmore");
    EXPECT_EQ(ParsedMessage::parse("Subject: x\n \t \nnot: a field\n").plainText, "not: a field\n");
}

TEST(ParsedMessageTest, UUEncodedFilesAreAttachments) {
    const std::string file = "begin 644 a b.txt\n#86)C\n`\nend\n";
    const auto parsed = ParsedMessage::parse("Subject: x\n\nbefore\n" + file + "after\n" + file);
    EXPECT_EQ(parsed.plainText, "before\nafter\n");
    ASSERT_EQ(parsed.attachments.size(), 2U);
    EXPECT_EQ(parsed.attachments[1], (MIMEAttachment{"a b.txt", "application/octet-stream", {}, false, "abc"}));
    // What is no whole file stays where it is.
    for (const char* text : {"begin 644 cut.txt\n#86)C\n", "begin 644 x\nnot a line of a file\n`\nend\n",
                             "begin now\nend\n", "begin 644 x\n`\nend\n"}) {
        const auto whole = ParsedMessage::parse("Subject: x\n\n"s + text);
        EXPECT_EQ(whole.plainText, text);
        EXPECT_TRUE(whole.attachments.empty());
    }
    const auto many = ParsedMessage::parse("\n\n" + repeated("begin 644 x\n", 50'000));
    EXPECT_TRUE(many.attachments.empty());
}

TEST(ParsedMessageTest, TextsAreChosenAndJoined) {
    const auto part = [](const std::string& type, const std::string& body) {
        return "--b\nContent-Type: " + type + "\n\n" + body + "\n";
    };
    const std::string alternative = "Content-Type: multipart/alternative; boundary=c\n\n--c\n\nplain\n"
                                    "--c\nContent-Type: text/html\n\n<b>html</b>\n--c--\n";
    const auto embedded = [&](const std::string& message) {
        return "--b\nContent-Type: message/rfc822\n\n" + message + "\n";
    };
    struct {
        std::string parts;
        const char* plain;
        const char* html;
        std::size_t attachments;
    } const cases[] = {
        {"--b\n" + alternative, "plain", "<b>html</b>", 0},
        {part("text/plain", "one") + part("TEXT/PLAIN", "two"), "one\ntwo", nullptr, 0},
        {part("text/html", "one") + part("text/html", "two"), nullptr, "one\ntwo", 0},
        {part("text/plain", "one") + "--b\n" + alternative, "one", "<b>html</b>", 0},
        {"--b\n" + alternative + "--b\n" + alternative, "plain", "<b>html</b>", 0},
        {"--b\n" + alternative + part("text/plain", "two"), "plain\ntwo", "<b>html</b>", 0},
        {part("text/plain; name=a.txt", "text"), "text", nullptr, 0},
        {part("text/plain\nContent-Disposition: attachment", "text"), nullptr, nullptr, 1},
        {part("text/calendar", "x"), nullptr, nullptr, 1},
        {part("multipart/mixed", "--z\n\nx"), nullptr, nullptr, 1}, // no boundary
        {part("text/plain", "a") + embedded("Subject: s\n\nb") + embedded(alternative), "a\n\nb\n\nplain",
         "<b>html</b>", 0},
        {embedded(alternative) + embedded(alternative), "plain\n\nplain", "<b>html</b><hr><b>html</b>", 0},
        {embedded("Content-Type: message/rfc822\n\nX: y\n\nin") + part("text/plain", "out"), "in\nout", nullptr, 0},
        {part("message/rfc822\nContent-Disposition: attachment", "A: b\n\nc"), nullptr, nullptr, 1},
        {part("message/rfc822\nContent-Transfer-Encoding: base64", text::base64("A: b\n\nc")) + part("text/plain", "d"),
         "c\nd", nullptr, 0},
        {"--b\n--b\n", "\n", nullptr, 0},
    };
    for (const auto& c : cases) {
        const auto parsed = ParsedMessage::parse("Content-Type: multipart/mixed; boundary=b\n\n" + c.parts + "--b--\n");
        EXPECT_EQ(parsed.plainText.value_or("absent"), c.plain == nullptr ? "absent" : c.plain) << c.parts;
        EXPECT_EQ(parsed.html.value_or("absent"), c.html == nullptr ? "absent" : c.html) << c.parts;
        EXPECT_EQ(parsed.attachments.size(), c.attachments) << c.parts;
    }
}

TEST(ParsedMessageTest, AttachmentsAreNamedAndDecoded) {
    struct {
        const char* head;
        const char* body;
        MIMEAttachment expected;
    } const cases[] = {
        {"Content-Type: IMAGE/PNG\nContent-ID: < a@b >", "x", {"attachment.png", "image/png", "a@b", true, "x"}},
        {"Content-Type: image/png\nContent-ID: <a>\nContent-Disposition: ATTACHMENT; filename=\"a \\\"b\\\".png\"",
         "x",
         {"a \"b\".png", "image/png", "a", false, "x"}},
        {"Content-Type: odd", "x", {"attachment.odd", "odd", {}, false, "x"}},
        {"Content-Disposition: attachment", "x", {"attachment.bin", "application/octet-stream", {}, false, "x"}},
        {"Content-Type: image/; name=\"=?utf-8?B?w6ku?= =?utf-8?Q?png?=\"", "x", {"é.png", "image/", {}, false, "x"}},
        {"Content-Type: image/gif; name=old\nContent-Disposition: inline; filename*=UTF-8''a%20b.pdf; filename=c",
         "x",
         {"a b.pdf", "image/gif", {}, false, "x"}},
        {"Content-Type: a/b; name=\"\"\nContent-ID: <>\nContent-Transfer-Encoding: Base64 ",
         "QU\nI=",
         {"attachment.b", "a/b", {}, false, "AB"}},
        {"Content-Type: a/b\nContent-Transfer-Encoding: base64",
         "QUJDRA==\n-- \na list",
         {"attachment.b", "a/b", {}, false, "ABCD"}},
        {"Content-Type: a/b (note; x=\\)y) ; name*0*=utf-8''%C3; name*1*=%A9.b; name=old\n"
         "Content-Transfer-Encoding: (really) base64 (yes)",
         "QUI=",
         {"é.b", "a/b", {}, false, "AB"}},
    };
    for (const auto& c : cases) {
        const auto parsed = ParsedMessage::parse(c.head + "\n\n"s + c.body);
        ASSERT_EQ(parsed.attachments.size(), 1U) << c.head;
        EXPECT_EQ(parsed.attachments[0], c.expected) << c.head;
        EXPECT_FALSE(parsed.plainText);
    }
}

// Each of these takes minutes or all of the call stack when some step of the reading depends on what was read before.
TEST(ParsedMessageTest, HostileShapesTakeLinearTime) {
    constexpr std::size_t deep = 10'000;
    const std::string filling = repeated("some line of text\n", 30'000);
    std::string differentBoundaries, prefixes;
    for (std::size_t i = 0; i < deep; ++i) {
        const auto name = std::to_string(i);
        differentBoundaries += "Content-Type: multipart/mixed; boundary=b" + name + "_\n\n--b" + name + "_\n";
    }
    for (std::size_t i = 1'000; i > 0; --i)
        prefixes +=
            "Content-Type: multipart/mixed; boundary=" + std::string(i, 'a') + "!\n\n--" + std::string(i, 'a') + "!\n";
    const std::string openDelimiters = repeated("--" + std::string(999, 'a') + "\n", 2'000);
    const std::string encoded = "Content-Type: message/rfc822\nContent-Transfer-Encoding: quoted-printable\n\n";
    struct {
        const char* name;
        std::string message;
    } const cases[] = {
        {"nested multiparts", differentBoundaries + filling + "\n" + repeated("--b0_\n", 10'000)},
        {"one boundary again and again",
         repeated("Content-Type: multipart/alternative; boundary=b\n\n--b\n", deep) + filling},
        {"boundaries that begin alike", prefixes + openDelimiters},
        {"nested messages", repeated("Content-Type: message/rfc822\n\n", deep) + "\n\n" + filling},
        {"nested encoded messages", repeated(encoded, deep) + "\n\n" + repeated("=3D", 30'000)},
        {"messages in multiparts",
         repeated("Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: message/rfc822\n\n", deep)},
        {"many parts", "Content-Type: multipart/mixed; boundary=b\n\n" + repeated("--b\n", 50'000)},
        {"many attachments",
         "Content-Type: multipart/mixed; boundary=b\n\n" + repeated("--b\nContent-Type: a\n\n", 30'000)},
        {"embedded texts", "Content-Type: multipart/mixed; boundary=b\n\n" +
                               repeated("--b\nContent-Type: message/rfc822\n\n\n\ntext\n", 20'000)},
        {"many headers", repeated("A: b\n", 50'000) + "\n"},
        {"endless folding", "Subject: a\n" + repeated(" b\n", 300'000) + "\n"},
        {"many sections",
         "Content-Type: a/b" + repeated("; name*0*=a", 20'000) + repeated("; p*1=x; q=y", 10'000) + "\n\n"},
        {"open quotes", "Content-Type: a/b; name=\"" + repeated("\\\"", 200'000) + "\n\n"},
    };
    for (const auto& c : cases) {
        ParsedMessage parsed;
        EXPECT_LT(processorSeconds([&] { parsed = ParsedMessage::parse(c.message); }), 5) << c.name;
        const std::size_t texts = parsed.plainText.value_or("").size() + parsed.html.value_or("").size();
        EXPECT_LE(texts, 2 * c.message.size()) << c.name;
    }
    EXPECT_EQ(ParsedMessage::parse(cases[0].message).headers.fields.size(), 1U);
    EXPECT_EQ(ParsedMessage::parse(cases[3].message).plainText, filling);
}

// Beyond a depth that no sender needs, encoded messages stay closed, and nothing of them is lost.
TEST(ParsedMessageTest, DeeplyEncodedMessagesBecomeAttachments) {
    std::string message = "Subject: innermost\n\ntext";
    std::string inner;
    for (int level = 0; level < 9; ++level) {
        if (level == 1) inner = message;
        message = "Content-Type: message/rfc822\nContent-Transfer-Encoding: base64\n\n" + text::base64(message);
    }
    const auto parsed = ParsedMessage::parse(message);
    EXPECT_FALSE(parsed.plainText);
    ASSERT_EQ(parsed.attachments.size(), 1U);
    EXPECT_EQ(parsed.attachments[0].filename, "attachment.rfc822");
    EXPECT_EQ(parsed.attachments[0].data, "Subject: innermost\n\ntext");
}

}}
