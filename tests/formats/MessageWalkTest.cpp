#include "formats/ParsedMessage.h"
#include "formats/PartInfo.h"
#include "formats/TextDecoding.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace velmo { namespace {

/// The same reading told level by level: each part is cut out of the one around it and read for itself. It takes time
/// and call stack with depth, so it only serves to check the one-pass reading.
namespace levels {

struct Halves {
    BytesView head, body;
};

Halves halves(BytesView data) {
    for (std::size_t i = 0; i < data.size(); ++i) {
        if (data[i] != '\n') continue;
        for (const std::string_view blank : {"\n", "\r\n"})
            if (data.substr(i + 1).starts_with(blank))
                return {data.substr(0, i + 1), data.substr(i + 1 + blank.size())};
    }
    return {data, {}};
}

/// A part may have no head, a message has one.
Halves halvesOfPart(BytesView data) {
    for (const std::string_view blank : {"\n", "\r\n"})
        if (data.starts_with(blank)) return {{}, data.substr(blank.size())};
    return halves(data);
}

std::vector<BytesView> parts(BytesView body, const std::string& boundary) {
    const std::string delimiter = "--" + boundary;
    std::vector<BytesView> found;
    std::optional<std::size_t> start;
    for (std::size_t at = 0; at < body.size();) {
        const auto lineFeed = body.find('\n', at);
        const auto next = lineFeed == BytesView::npos ? body.size() : lineFeed + 1;
        auto line = body.substr(at, lineFeed == BytesView::npos ? lineFeed : lineFeed - at);
        if (lineFeed != BytesView::npos && line.ends_with('\r')) line.remove_suffix(1);
        if (line.starts_with(delimiter)) {
            if (start) {
                auto part = body.substr(*start, at - *start);
                if (part.ends_with('\n')) part.remove_suffix(1);
                if (part.ends_with('\r')) part.remove_suffix(1);
                found.push_back(part);
            }
            if (line.substr(delimiter.size()).starts_with("--")) return found;
            start = next;
        }
        at = next;
    }
    if (start && *start < body.size()) found.push_back(body.substr(*start));
    return found;
}

void append(std::optional<std::string>& target, const std::optional<std::string>& text, std::string_view separator) {
    if (!text) return;
    target = target ? *target + std::string(separator) + *text : *text;
}

ParsedMessage parse(BytesView data);

void walk(const PartInfo& info, BytesView body, ParsedMessage& target) {
    if (info.kind == PartKind::multipart || info.kind == PartKind::alternative) {
        ParsedMessage alternative;
        ParsedMessage& inner = info.kind == PartKind::multipart ? target : alternative;
        for (const auto part : parts(body, info.boundary))
            walk(ContentFields::of(halvesOfPart(part).head).info(), halvesOfPart(part).body, inner);
        if (!target.html) target.html = alternative.html;
        if (!target.plainText) target.plainText = alternative.plainText;
        for (auto& attachment : alternative.attachments) target.attachments.push_back(attachment);
        return;
    }
    const Bytes data = decodeTransfer(body, info.encoding);
    if (info.kind == PartKind::embedded) {
        const auto embedded = parse(data);
        append(target.plainText, embedded.plainText, "\n\n");
        append(target.html, embedded.html, "<hr>");
        for (auto& attachment : embedded.attachments) target.attachments.push_back(attachment);
    } else if (info.kind == PartKind::attachment) {
        target.attachments.push_back(info.attachment);
        target.attachments.back().data = data;
    } else {
        append(info.kind == PartKind::html ? target.html : target.plainText, decodeText(data, info.charset), "\n");
    }
}

ParsedMessage parse(BytesView data) {
    ParsedMessage message;
    message.headers = MIMEHeaders::parse(halves(data).head);
    walk(ContentFields::of(message.headers).info(), halves(data).body, message);
    return message;
}

}

/// Messages out of the pieces that decide how one is taken apart.
std::string randomMessage(std::mt19937& random) {
    constexpr std::array<std::string_view, 30> pieces{"\n",
                                                      "\n",
                                                      "\n\n",
                                                      "\n\n",
                                                      "\r\n",
                                                      "\r\n\r\n",
                                                      "\r",
                                                      "\n--a\n",
                                                      "\n--a\n",
                                                      "\n--ab\n",
                                                      "\r\n--ab\r\n",
                                                      "\n--b\n",
                                                      "\n--a--\n",
                                                      "\n--ab--",
                                                      "\n--b--\n",
                                                      "\n--",
                                                      "--b",
                                                      "--a\n",
                                                      "x",
                                                      " y=\n",
                                                      "=41",
                                                      "QUJD",
                                                      "\n--a-\r\r\n",
                                                      "Content-Type: multipart/mixed; boundary=a\n\n",
                                                      "Content-Type: multipart/alternative; boundary=ab\n\n",
                                                      "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n",
                                                      "Content-Type: multipart/alternative; boundary=\n\n",
                                                      "Content-Type: message/rfc822\n\n",
                                                      "Content-Type: text/html\n\n",
                                                      "Content-Disposition: attachment\n"};
    constexpr std::array<std::string_view, 3> heads{
        "Content-Type: multipart/mixed; boundary=a\n\n--a\n",
        "Content-Type: multipart/alternative; boundary=ab\r\n\r\n--ab\n",
        "Content-Type: message/rfc822\nContent-Transfer-Encoding: quoted-printable\n\n"};
    std::string message(heads[random() % heads.size()]);
    for (std::size_t count = random() % 40; count > 0; --count) {
        if (random() % 12 == 0) message += "Content-Transfer-Encoding: quoted-printable\n";
        message += pieces[random() % pieces.size()];
    }
    return message;
}

TEST(MessageWalkTest, OnePassGivesWhatALevelByLevelReadingGives) {
    std::mt19937 random(20260301);
    std::size_t withParts = 0;
    for (int i = 0; i < 10'000; ++i) {
        const std::string message = randomMessage(random);
        const auto expected = levels::parse(message), actual = ParsedMessage::parse(message);
        EXPECT_EQ(actual.headers, expected.headers) << message;
        EXPECT_EQ(actual.plainText, expected.plainText) << message;
        EXPECT_EQ(actual.html, expected.html) << message;
        EXPECT_EQ(actual.attachments, expected.attachments) << message;
        if (::testing::Test::HasFailure()) return;
        withParts += expected.html || expected.attachments.size() > 1 ? 1U : 0U;
    }
    EXPECT_GT(withParts, 900U);
}

}}
