#include "formats/OutgoingMessage.h"

#include "base/Text.h"
#include "formats/Addresses.h"
#include "formats/HeaderWords.h"
#include "formats/MailDate.h"
#include "formats/MessageIDs.h"
#include "formats/ParsedMessage.h"
#include "formats/TransferEncoder.h"
#include "formats/TransferEncoding.h"
#include "formats/WhiteSpace.h"
#include "support/EnvironmentGuard.h"
#include "support/Hostile.h"
#include "support/TemporaryDirectory.h"

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>

namespace velmo { namespace {

using namespace std::string_literals;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr Date someTime{std::chrono::milliseconds{1'767'225'600'000}};

OutgoingMessage messageOfAda() {
    OutgoingMessage message({"Ada", "ada@example.org"}, someTime);
    message.messageID = "<1@example.org>";
    return message;
}

std::string built(const OutgoingMessage& message) {
    // Boundaries in the order in which they appear.
    std::string text = message.build();
    const std::regex boundary("velmo-[0-9a-f]{32}");
    std::smatch found;
    for (char name = 'a'; std::regex_search(text, found, boundary); ++name)
        text = text::replacedAll(text, found.str(), "velmo-"s + name);
    return text;
}

std::string headerOf(const OutgoingMessage& message, std::string_view name) {
    return std::string(MIMEHeaders::parse(message.build()).value(name).value_or("(none)"));
}

TEST(OutgoingMessageTest, BuildsEachByteOfAReplyWithEverything) {
    const test::EnvironmentGuard zone("TZ", "UTC+3:30");
    tzset();
    auto message = messageOfAda();
    message.to = {{"Bob B.", "bob@example.org"}, {{}, "eve@example.org"}};
    message.cc = {{"Zoë", "zoe@example.org"}};
    message.bcc = {{{}, "hidden@example.org"}};
    message.subject = "Re: Déjà vu";
    message.plainText = "Hi \n=\r\n";
    message.html = "<b>Hi</b>";
    message.pictures = {{"signature-0@velmo", "image/jpeg", "JPEG"}};
    message.inReplyTo = "<0@example.org>";
    message.references = {"<9@example.org>", "<0@example.org>"};
    message.attachments = {{UUID(), "a.txt", "text/plain", "abc"}, {UUID(), "\"é\".txt", "text/plain", ""}};
    EXPECT_EQ(built(message), "From: Ada <ada@example.org>\r\n"
                              "Date: Wed, 31 Dec 2025 20:30:00 -0330\r\n"
                              "Message-ID: <1@example.org>\r\n"
                              "Subject: =?UTF-8?B?UmU6IETDqWrDoCB2dQ==?=\r\n"
                              "MIME-Version: 1.0\r\n"
                              "X-Mailer: Velmo-Mail\r\n"
                              "To: \"Bob B.\" <bob@example.org>, eve@example.org\r\n"
                              "Cc: =?UTF-8?B?Wm/Dqw==?= <zoe@example.org>\r\n"
                              "In-Reply-To: <0@example.org>\r\n"
                              "References: <9@example.org> <0@example.org>\r\n"
                              "Content-Type: multipart/mixed;\r\n boundary=\"velmo-a\"\r\n"
                              "\r\n"
                              "--velmo-a\r\n"
                              "Content-Type: multipart/alternative; boundary=\"velmo-b\"\r\n"
                              "\r\n"
                              "--velmo-b\r\n"
                              "Content-Type: text/plain; charset=\"utf-8\"\r\n"
                              "Content-Transfer-Encoding: quoted-printable\r\n"
                              "\r\n"
                              "Hi=20\r\n=3D\r\n\r\n"
                              "--velmo-b\r\n"
                              "Content-Type: multipart/related; type=\"text/html\"; boundary=\"velmo-c\"\r\n"
                              "\r\n"
                              "--velmo-c\r\n"
                              "Content-Type: text/html; charset=\"utf-8\"\r\n"
                              "Content-Transfer-Encoding: quoted-printable\r\n"
                              "\r\n"
                              "<b>Hi</b>\r\n"
                              "--velmo-c\r\n"
                              "Content-Type: image/jpeg; name=\"logo.jpg\"\r\n"
                              "Content-Disposition: inline; filename=\"logo.jpg\"\r\n"
                              "Content-ID: <signature-0@velmo>\r\n"
                              "Content-Transfer-Encoding: base64\r\n"
                              "\r\n"
                              "SlBFRw==\r\n"
                              "--velmo-c--\r\n"
                              "\r\n"
                              "--velmo-b--\r\n"
                              "\r\n"
                              "--velmo-a\r\n"
                              "Content-Type: text/plain; name=\"a.txt\"\r\n"
                              "Content-Disposition: attachment; filename=\"a.txt\"\r\n"
                              "Content-Transfer-Encoding: base64\r\n"
                              "\r\n"
                              "YWJj\r\n"
                              "--velmo-a\r\n"
                              "Content-Type: text/plain\r\n"
                              "Content-Disposition: attachment; filename*=UTF-8''%22%C3%A9%22%2Etxt\r\n"
                              "Content-Transfer-Encoding: base64\r\n"
                              "\r\n"
                              "\r\n"
                              "--velmo-a--\r\n");
    EXPECT_EQ(message.recipients(), (std::vector<std::string>{"bob@example.org", "eve@example.org", "zoe@example.org",
                                                              "hidden@example.org"}));
}

TEST(OutgoingMessageTest, HasTheFewestPartsThatHoldIt) {
    auto message = messageOfAda();
    message.plainText = "text\n";
    EXPECT_THAT(built(message), HasSubstr("X-Mailer: Velmo-Mail\r\nContent-Type: text/plain; charset=\"utf-8\"\r\n"
                                          "Content-Transfer-Encoding: quoted-printable\r\n\r\ntext\r\n"));
    EXPECT_THAT(built(message), Not(HasSubstr("boundary")));
    message.calendar = OutgoingCalendar{"REPLY", "BEGIN:VCALENDAR"};
    EXPECT_THAT(built(message), HasSubstr("Content-Type: text/calendar; charset=\"utf-8\"; method=REPLY\r\n"
                                          "Content-Transfer-Encoding: base64\r\n\r\nQkVHSU46VkNBTEVOREFS\r\n"));
    EXPECT_THAT(headerOf(message, "Content-Type"), StartsWith("multipart/alternative;"));
}

TEST(OutgoingMessageTest, EncodesTextInLinesOfSeventySix) {
    const std::string x(200, 'x');
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", ""},
        {x, x.substr(0, 75) + "=\r\n" + x.substr(0, 75) + "=\r\n" + x.substr(0, 50)},
        {x.substr(0, 75), x.substr(0, 75)},
        {x.substr(0, 74) + " ", x.substr(0, 74) + "=\r\n=20"},
        {x.substr(0, 73) + "é", x.substr(0, 73) + "=\r\n=C3=A9"},
        {"a b\t\n \n.\r\rb\0"s, "a b=09\r\n=20\r\n.=0D=0Db=00"},
    };
    for (const auto& [text, expected] : cases) {
        Bytes encoded;
        appendQuotedPrintable(encoded, text);
        EXPECT_EQ(encoded, expected);
    }
    for (std::size_t size : {0U, 1U, 2U, 3U, 56U, 57U, 58U, 114U, 1000U}) {
        Bytes data(size, '\0'), lines;
        for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 37 + size);
        appendBase64Lines(lines, data);
        EXPECT_EQ(lines.size(), lengthInBase64Lines(size));
        EXPECT_THAT(text::split(lines, '\n'), Each(testing::SizeIs(testing::Le(77U))));
        EXPECT_EQ(text::replacedAll(lines, "\r\n", ""), text::base64(data));
    }
}

TEST(OutgoingMessageTest, FoldsLongHeadersAtBlanks) {
    auto message = messageOfAda();
    for (int i = 0; i < 20; ++i) message.references.push_back("<reference-" + std::to_string(i) + "@example.org>");
    message.subject = std::string(100, 'w') + " end";
    const std::string text = message.build();
    const auto head = text.substr(0, text.find("\r\n\r\n"));
    const auto lines = text::replacedAll(head, "\r\n", "\n");
    EXPECT_THAT(head, HasSubstr("Subject:\r\n " + std::string(100, 'w') + "\r\n end\r\n"));
    for (const auto line : text::split(lines, '\n'))
        EXPECT_TRUE(line.size() <= 78 || line.find(' ', 1) == std::string_view::npos) << line;
    EXPECT_EQ(parseMessageIDs(headerOf(message, "References")), message.references);
    EXPECT_EQ(headerOf(message, "Subject"), message.subject);
}

TEST(OutgoingMessageTest, NoLineIsTooLongAndNoneOfBlanks) {
    const std::string subjects[]{test::repeated("Zoë und 日本語 😀 ", 3'000), std::string(2'000, 'w'),
                                 "a" + std::string(500, ' ') + "b c",         "a" + std::string(5'000, ' ') + "b",
                                 test::repeated("word ", 2'000) + "end",      std::string(900, 'x') + " y"};
    for (const auto& subject : subjects) {
        auto message = messageOfAda();
        message.subject = subject;
        message.to = {{subject, "ben@example.org"}};
        message.references = {"<" + std::string(3'000, 'r') + "@x>", "<fine@x>"};
        message.attachments = {{UUID(), test::repeated("ü", 2'000) + ".pdf", "application/pdf", "x"}};
        const std::string text = message.build();
        const auto lines = text::replacedAll(text, "\r\n", "\n");
        const auto head = lines.substr(0, lines.find("\n\n"));
        for (const auto line : text::split(lines, '\n')) EXPECT_LE(line.size(), 998U) << line.substr(0, 40);
        for (const auto line : text::split(head, '\n'))
            EXPECT_NE(line.find_first_not_of(' '), std::string_view::npos) << subject.substr(0, 20);
        EXPECT_TRUE(collapsedWhiteSpace(decodeHeaderWords(headerOf(message, "Subject"))) ==
                    collapsedWhiteSpace(subject))
            << subject.substr(0, 20);
        EXPECT_EQ(parseMessageIDs(headerOf(message, "References")), std::vector<std::string>{"<fine@x>"});
        const auto parsed = ParsedMessage::parse(text);
        EXPECT_TRUE(parsed.attachments.at(0).filename.ends_with("ü.pdf"));
        EXPECT_EQ(parseAddressList(*parsed.headers.value("To")).at(0).email, "ben@example.org");
    }
}

TEST(OutgoingMessageTest, AMessageGoesAlongInItsOwnLines) {
    const Bytes plain = "Subject: inner\nContent-Type: text/plain\n\n.line\nlast";
    const Bytes eight = "Subject: inner\r\nContent-Type: text/plain; charset=utf-8\r\n\r\ngrün\r\n";
    auto message = messageOfAda();
    message.attachments = {{UUID(), "one.eml", "message/rfc822", plain}};
    std::string text = message.build();
    EXPECT_THAT(text, HasSubstr("Content-Transfer-Encoding: 7bit\r\n\r\nSubject: inner\r\n"));
    EXPECT_THAT(text, HasSubstr("\r\n\r\n.line\r\nlast\r\n\r\n--"));
    message.attachments.push_back({UUID(), "two.eml", "message/rfc822", eight});
    text = message.build();
    EXPECT_THAT(text.substr(0, text.find("\r\n\r\n")), HasSubstr("Content-Transfer-Encoding: 8bit"));
    EXPECT_THAT(text, HasSubstr(eight));
    // What has no such lines can't be a message inside another.
    message.attachments = {{UUID(), "odd.eml", "message/rfc822", "Subject: x\n\n" + std::string(2'000, 'l')}};
    EXPECT_THAT(message.build(), HasSubstr("Content-Type: application/octet-stream; name=\"odd.eml\""));
}

TEST(OutgoingMessageTest, NoFieldBeginsALineOfItsOwn) {
    const std::string evil = "x\r\nX-Evil: 1\r\n\r\n--\0"s;
    auto message = messageOfAda();
    message.from = {evil, evil};
    message.to = message.cc = {{evil, evil}, {"a\\\", mallory@example.org, \"b", "bob@example.org"}};
    message.subject = evil;
    message.inReplyTo = message.messageID = evil;
    message.references = {evil, evil};
    message.html = "h";
    message.pictures = {{evil, evil, evil}};
    message.attachments = {{UUID(), evil, evil, evil}, {UUID(), "é" + evil, "text/plain; x=" + evil, evil}};
    message.calendar = OutgoingCalendar{evil, evil};
    const std::string text = message.build();
    EXPECT_EQ(text.find("\nX-Evil"), std::string::npos);
    const auto parsed = ParsedMessage::parse(text);
    EXPECT_FALSE(parsed.headers.value("X-Evil"));
    ASSERT_EQ(parsed.attachments.size(), 4U); // the picture, the calendar, and the two
    for (const auto& attachment : parsed.attachments) EXPECT_EQ(attachment.data, evil);
    const auto recipients = parseAddressList(*parsed.headers.value("To"));
    EXPECT_EQ(recipients.back().email, "bob@example.org");
    EXPECT_EQ(recipients.back().name, "a\\\", mallory@example.org, \"b");
}

TEST(OutgoingMessageTest, ReadsAddressesAsTyped) {
    const auto list = OutgoingMessage::parseAddressList(
        " ada@example.org ,;\"Lovelace, Ada; <a>\" <ada@example.org>; nobody, <bob@b.org>x, a@b, Eve <e v@e.org>");
    EXPECT_EQ(list, (std::vector<IMAPAddress>{
                        {{}, "ada@example.org"}, {"Lovelace, Ada; <a>", "ada@example.org"}, {{}, "bob@b.org"}}));
    const std::string escaped = R"("Tom \"Tiger, T.\" Smith" <tom@example.org>, bob@b.org)";
    const auto typed = OutgoingMessage::parseAddressList(escaped);
    ASSERT_EQ(typed.size(), 2U);
    EXPECT_EQ(typed[0].name, R"(Tom "Tiger, T." Smith)");
    EXPECT_EQ(typed[0].formatted() + ", bob@b.org", escaped);
    EXPECT_EQ(OutgoingMessage::splitAddressList("a,,b;").size(), 4U);
    EXPECT_EQ(OutgoingMessage::parseAddress("Ada <ada@example.org"), std::nullopt);
}

TEST(OutgoingMessageTest, KnowsABlankDraftAndItsOwnDomain) {
    OutgoingMessage message({{}, "ada@Example.org"}, someTime);
    EXPECT_THAT(message.messageID, testing::MatchesRegex("<[0-9a-f-]*@Example.org>"));
    EXPECT_THAT(OutgoingMessage({{}, "ada"}, someTime).messageID, testing::EndsWith("@velmo-mail>"));
    message.plainText = " \n\u00A0";
    EXPECT_TRUE(message.isEmpty());
    message.to = message.bcc = {{{}, "Bob@example.org"}, {"B", "bob@EXAMPLE.org"}};
    EXPECT_FALSE(message.isEmpty());
    EXPECT_EQ(message.recipients(), std::vector<std::string>{"Bob@example.org"});
}

// --- Generated messages ------------------------------------------------------------------------------------------

/// Texts of every script, long and short, with what trips readers and writers.
class Generator {
  public:
    explicit Generator(std::uint32_t seed) : random_(seed) {}

    std::size_t below(std::size_t limit) { return random_() % limit; }

    std::string text(std::size_t most, bool hasLines) {
        static const std::vector<std::string> words{
            "hello", "Grüße", "Привет", "你好",  "مرحبا", "🙂",      "=3D",
            "a=b",   "\"q\"", "(c)",    "x,y;z", "a\\b",  "e\u0301", std::string(90, 'w'),
            "_",     "?="};
        static const std::vector<std::string> ends{"\n",   "\n.\n",        "\n..x\n",   " \n",
                                                   "\t\n", "\n--velmo-\n", "\nFrom x\n"};
        std::string made;
        for (std::size_t i = below(most); i > 0; --i) {
            made += words[below(words.size())];
            made += hasLines && below(4) == 0 ? ends[below(ends.size())] : " ";
        }
        return made;
    }

    /// A text in one line, without blanks at its ends, which readers drop.
    std::string line(std::size_t most) { return std::string(text::trimmed(text(most, false))); }

    Bytes bytes(std::size_t most) {
        Bytes made(below(most), '\0');
        for (char& c : made) c = static_cast<char>(random_());
        return made;
    }

    OutgoingMessage message() {
        OutgoingMessage made({name(), "ada@example.org"}, someTime);
        for (auto* list : {&made.to, &made.cc})
            for (std::size_t i = below(4); i > 0; --i)
                list->push_back({name(), "p" + std::to_string(i) + "@example.org"});
        made.subject = line(12);
        made.plainText = text(60, true);
        if (below(2) == 0) made.html = "<p>" + text(60, true) + "</p>";
        for (std::size_t i = below(30); i > 0; --i)
            made.references.push_back("<r" + std::to_string(i) + "@example.org>");
        for (std::size_t i = below(4); i > 0; --i)
            made.attachments.push_back({UUID::random(), "f" + line(3) + ".bin", "application/x-test", bytes(3000)});
        return made;
    }

  private:
    std::optional<std::string> name() {
        auto made = line(3);
        if (made.empty()) return std::nullopt;
        return made;
    }

    std::mt19937 random_;
};

std::string addressText(const IMAPAddress& address) {
    return address.name.value_or("") + "|" + address.email;
}

nlohmann::json expectationOf(const OutgoingMessage& message) {
    nlohmann::json told;
    told["subject"] = message.subject;
    told["text"] = message.plainText;
    if (message.html) told["html"] = *message.html;
    for (const auto& [key, list] : {std::pair{"from", std::vector{message.from}}, std::pair{"to", message.to}}) {
        told[key] = nlohmann::json::array();
        for (const auto& address : list) told[key].push_back(addressText(address));
    }
    told["attachments"] = nlohmann::json::array();
    for (const auto& one : message.attachments) told["attachments"].push_back({one.filename, text::base64(one.data)});
    return told;
}

TEST(OutgoingMessageTest, TwoReadersFindWhatWasWritten) {
    const test::TemporaryDirectory directory;
    for (std::uint32_t seed = 0; seed < 200; ++seed) {
        const auto message = Generator(seed).message();
        const Bytes bytes = message.build();
        const auto parsed = ParsedMessage::parse(bytes);
        const auto unix = [](const std::string& text) { return text::replacedAll(text, "\r\n", "\n"); };
        EXPECT_EQ(decodeHeaderWords(parsed.headers.value("Subject").value_or("")), message.subject) << seed;
        EXPECT_EQ(unix(parsed.plainText.value_or("")), message.plainText) << seed;
        EXPECT_EQ(parsed.html ? std::optional(unix(*parsed.html)) : std::nullopt, message.html) << seed;
        EXPECT_EQ(parseDate(parsed.headers.value("Date").value_or("")), someTime);
        ASSERT_EQ(parsed.attachments.size(), message.attachments.size()) << seed;
        for (std::size_t i = 0; i < parsed.attachments.size(); ++i) {
            EXPECT_EQ(parsed.attachments[i].data, message.attachments[i].data);
            EXPECT_EQ(parsed.attachments[i].filename, message.attachments[i].filename);
        }
        std::ofstream(directory / (std::to_string(seed) + ".eml"), std::ios::binary) << bytes;
        std::ofstream(directory / (std::to_string(seed) + ".json")) << expectationOf(message);
    }
    const std::string reader = VELMO_SOURCE_DIR "/tests/formats/read_messages";
    const std::string command = "python3 '" + reader + "' '" + directory.path().string() + "'";
    EXPECT_EQ(std::system(command.c_str()), 0); // NOLINT(concurrency-mt-unsafe, cert-env33-c)
}

}}
