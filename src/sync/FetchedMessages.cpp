#include "sync/FetchedMessages.h"

#include "base/Text.h"
#include "formats/HTMLText.h"
#include "formats/MessageIDs.h"
#include "formats/Preview.h"
#include "formats/TextDecoding.h"
#include "formats/TransferEncoding.h"
#include "sync/Attachments.h"

#include <algorithm>
#include <utility>

namespace velmo {

namespace {

MIMEHeaders fetchedHeaders(const IMAPFetchResult& result) {
    const auto found = std::ranges::find_if(
        result.sections, [](const auto& section) { return text::startsWithIgnoringCase(section.first, "HEADER"); });
    return found == result.sections.end() ? MIMEHeaders{} : MIMEHeaders::parse(found->second);
}

SyncedMessage syncedMessage(IMAPFetchResult result, Date now) {
    const MIMEHeaders headers = fetchedHeaders(result);
    SyncedMessage message;
    message.uid = *result.uid;
    message.flags = std::move(result.flags).value_or(std::set<std::string>{});
    message.date = result.internalDate.value_or(now);
    if (result.envelope && result.envelope->date) message.date = *result.envelope->date;
    message.size = result.size.value_or(0);
    message.envelope = std::move(result.envelope);
    message.bodyStructure = std::move(result.bodyStructure);
    if (const auto references = headers.value("References")) message.references = parseMessageIDs(*references);
    message.gmailThreadID = result.gmailThreadID;
    message.isBulk = marksMailing(headers);
    return message;
}

/// The whole groups of base64 that a cut-off beginning holds.
Bytes decodedBeginning(BytesView beginning, const std::string& encoding) {
    if (encoding != "base64") return decodeTransfer(beginning, encoding);
    Bytes characters(beginning);
    std::erase_if(characters, [](char c) { return c == '\r' || c == '\n'; });
    characters.resize(characters.size() / 4 * 4);
    return decodeTransfer(characters, encoding);
}

}

bool marksMailing(const MIMEHeaders& headers) {
    if (headers.value("List-Unsubscribe") || headers.value("List-Id")) return true;
    const auto precedence = headers.value("Precedence");
    return precedence &&
           (text::containsIgnoringCase(*precedence, "bulk") || text::containsIgnoringCase(*precedence, "list"));
}

std::vector<SyncedMessage> syncedMessages(std::vector<IMAPFetchResult> results, Date now) {
    std::vector<SyncedMessage> messages;
    messages.reserve(results.size());
    for (IMAPFetchResult& result : results) {
        if (result.uid) messages.push_back(syncedMessage(std::move(result), now));
    }
    return messages;
}

std::optional<IMAPBodyPart> snippetPart(const IMAPBodyStructure& structure) {
    const std::vector<IMAPBodyPart> parts = flattenedParts(structure);
    for (const std::string_view subtype : {"plain", "html"}) {
        const auto found = std::ranges::find_if(parts, [&](const IMAPBodyPart& part) {
            return part.type == "text" && part.subtype == subtype && !isAttachment(part);
        });
        if (found != parts.end()) return *found;
    }
    return std::nullopt;
}

std::string snippetOf(BytesView beginning, const IMAPBodyPart& part) {
    const auto charset = part.parameters.find("charset");
    const std::string text = decodeText(decodedBeginning(beginning, part.encoding),
                                        charset == part.parameters.end() ? std::string_view{} : charset->second);
    return snippet(part.subtype == "html" ? htmlToPlainText(text) : text, std::nullopt);
}

}
