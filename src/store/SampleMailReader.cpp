#include "store/SampleMailReader.h"

#include "base/Text.h"
#include "formats/Addresses.h"
#include "formats/HeaderWords.h"
#include "formats/MailDate.h"
#include "formats/MessageIDs.h"
#include "formats/ParsedMessage.h"
#include "formats/Preview.h"
#include "formats/StructuredValue.h"
#include "sync/FetchedMessages.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace velmo {

namespace {

constexpr std::size_t maximumLevels = 10;

std::string valueOr(const MIMEHeaders& headers, std::string_view name, std::string_view otherwise) {
    return std::string(headers.value(name).value_or(otherwise));
}

std::optional<std::string> textOf(const MIMEHeaders& headers, std::string_view name) {
    const auto value = headers.value(name);
    if (!value) return std::nullopt;
    return std::string(*value);
}

// --- parts ---

std::pair<BytesView, BytesView> headAndBody(BytesView entity) {
    std::size_t lineStart = 0;
    while (lineStart < entity.size()) {
        const BytesView rest = entity.substr(lineStart);
        for (const BytesView emptyLine : {"\n", "\r\n"}) {
            if (rest.starts_with(emptyLine)) return {entity.substr(0, lineStart), rest.substr(emptyLine.size())};
        }
        const std::size_t lineFeed = rest.find('\n');
        if (lineFeed == BytesView::npos) break;
        lineStart += lineFeed + 1;
    }
    return {entity, {}};
}

BytesView withoutLineEnd(BytesView part) {
    if (part.ends_with('\n')) part.remove_suffix(1);
    if (part.ends_with('\r')) part.remove_suffix(1);
    return part;
}

/// What stands between the delimiter lines (RFC 2046 §5.1.1).
std::vector<BytesView> partsBetween(BytesView body, const std::string& delimiter) {
    std::vector<BytesView> parts;
    std::optional<std::size_t> partStart;
    for (std::size_t lineStart = 0; lineStart < body.size();) {
        const std::size_t lineFeed = body.find('\n', lineStart);
        const std::size_t next = lineFeed == BytesView::npos ? body.size() : lineFeed + 1;
        const BytesView line = body.substr(lineStart, next - lineStart);
        if (line.starts_with(delimiter)) {
            if (partStart) parts.push_back(withoutLineEnd(body.substr(*partStart, lineStart - *partStart)));
            partStart = next;
            if (line.substr(delimiter.size()).starts_with("--")) return parts;
        }
        lineStart = next;
    }
    if (partStart && *partStart < body.size()) parts.push_back(body.substr(*partStart));
    return parts;
}

std::map<std::string, std::string> plainMap(const StructuredValue::Parameters& parameters) {
    return {parameters.begin(), parameters.end()};
}

IMAPBodyPart singlePart(const MIMEHeaders& headers, const StructuredValue& contentType, BytesView body,
                        std::string section) {
    IMAPBodyPart part;
    part.section = section.empty() ? "1" : std::move(section);
    const std::size_t slash = contentType.value.find('/');
    part.type = contentType.value.substr(0, slash);
    if (slash != std::string::npos) part.subtype = contentType.value.substr(slash + 1);
    part.parameters = plainMap(contentType.parameters);
    if (const auto id = headers.value("Content-ID")) part.contentID = text::trimmed(*id, "<> ");
    part.encoding = text::lowered(valueOr(headers, "Content-Transfer-Encoding", "7bit"));
    part.size = static_cast<std::int64_t>(body.size());
    if (const auto value = headers.value("Content-Disposition")) {
        const StructuredValue disposition = StructuredValue::parse(*value);
        part.disposition = disposition.value;
        part.dispositionParameters = plainMap(disposition.parameters);
    }
    return part;
}

IMAPBodyStructure structureOf(BytesView entity, const std::string& section, std::size_t level) {
    const auto [head, body] = headAndBody(entity);
    const MIMEHeaders headers = MIMEHeaders::parse(head);
    const StructuredValue contentType = StructuredValue::parse(valueOr(headers, "Content-Type", "text/plain"));
    constexpr std::string_view multipart = "multipart/";
    const auto boundary = contentType.parameter("boundary");
    if (contentType.value.starts_with(multipart) && boundary && level < maximumLevels) {
        std::vector<IMAPBodyStructure> children;
        for (const BytesView part : partsBetween(body, "--" + std::string(*boundary))) {
            std::string number = section.empty() ? "" : section + ".";
            number += std::to_string(children.size() + 1);
            children.push_back(structureOf(part, number, level + 1));
        }
        return IMAPBodyStructure::multipart(contentType.value.substr(multipart.size()), children);
    }
    return IMAPBodyStructure::single(singlePart(headers, contentType, body, section));
}

// --- envelope ---

std::vector<IMAPAddress> addresses(const MIMEHeaders& headers, std::string_view name) {
    std::vector<IMAPAddress> found;
    for (MailAddress& address : parseAddressList(valueOr(headers, name, ""))) {
        found.push_back({std::move(address.name), std::move(address.email)});
    }
    return found;
}

IMAPEnvelope envelopeOf(const MIMEHeaders& headers) {
    IMAPEnvelope envelope;
    if (const auto date = headers.value("Date")) envelope.date = parseDate(*date);
    if (const auto subject = headers.value("Subject")) envelope.subject = decodeHeaderWords(*subject);
    envelope.from = addresses(headers, "From");
    envelope.sender = addresses(headers, "Sender");
    envelope.replyTo = addresses(headers, "Reply-To");
    // A server puts the author where these two are missing (RFC 3501 §7.4.2).
    if (envelope.sender.empty()) envelope.sender = envelope.from;
    if (envelope.replyTo.empty()) envelope.replyTo = envelope.from;
    envelope.to = addresses(headers, "To");
    envelope.cc = addresses(headers, "Cc");
    envelope.bcc = addresses(headers, "Bcc");
    envelope.inReplyTo = textOf(headers, "In-Reply-To");
    envelope.messageID = textOf(headers, "Message-ID");
    return envelope;
}

}

IMAPBodyStructure bodyStructureOf(BytesView source) {
    return structureOf(source, "", 0);
}

SyncedMessage syncedMessage(std::uint32_t uid, std::set<std::string> flags, BytesView source) {
    const ParsedMessage parsed = ParsedMessage::parse(source);
    SyncedMessage message;
    message.uid = uid;
    message.flags = std::move(flags);
    message.size = static_cast<std::int64_t>(source.size());
    message.envelope = envelopeOf(parsed.headers);
    message.date = message.envelope->date.value_or(Date{});
    message.bodyStructure = bodyStructureOf(source);
    message.references = parseMessageIDs(valueOr(parsed.headers, "References", ""));
    message.snippet = snippet(parsed.plainText, parsed.html);
    message.isBulk = marksMailing(parsed.headers);
    return message;
}

}
