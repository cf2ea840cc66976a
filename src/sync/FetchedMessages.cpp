#include "sync/FetchedMessages.h"

#include "base/Text.h"
#include "formats/HTMLText.h"
#include "formats/MessageIDs.h"
#include "formats/Preview.h"
#include "formats/TextDecoding.h"
#include "formats/TransferEncoding.h"
#include "sync/Attachments.h"

#include <algorithm>
#include <unordered_map>
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
    message.hasFlags = result.flags.has_value();
    message.flags = std::move(result.flags).value_or(std::set<std::string>{});
    message.date = result.internalDate.value_or(now);
    const auto written = result.envelope ? result.envelope->date : std::nullopt;
    // Nobody's mail is to stand above all that will ever come.
    if (written && civilTime(*written).year <= civilTime(now).year + 1) message.date = *written;
    message.size = result.size.value_or(0);
    message.envelope = std::move(result.envelope);
    message.bodyStructure = std::move(result.bodyStructure);
    if (const auto references = headers.value("References")) message.references = parseMessageIDs(*references);
    message.gmailThreadID = result.gmailThreadID;
    message.isBulk = marksMailing(headers);
    return message;
}

template <class T>
void takeOver(std::optional<T>& held, std::optional<T>& received) {
    if (received) held = std::move(received);
}

/// An absent item changes nothing.
void merge(IMAPFetchResult& held, IMAPFetchResult received) {
    takeOver(held.flags, received.flags);
    takeOver(held.internalDate, received.internalDate);
    takeOver(held.size, received.size);
    takeOver(held.modSeq, received.modSeq);
    takeOver(held.envelope, received.envelope);
    takeOver(held.bodyStructure, received.bodyStructure);
    takeOver(held.gmailThreadID, received.gmailThreadID);
    for (auto& [name, bytes] : received.sections) held.sections.insert_or_assign(name, std::move(bytes));
}

std::vector<IMAPFetchResult> mergedByUID(std::vector<IMAPFetchResult> results) {
    std::vector<IMAPFetchResult> merged;
    merged.reserve(results.size());
    std::unordered_map<std::uint32_t, std::size_t> places;
    for (IMAPFetchResult& result : results) {
        if (!result.uid) continue;
        const auto [place, isFirst] = places.try_emplace(*result.uid, merged.size());
        if (isFirst)
            merged.push_back(std::move(result));
        else
            merge(merged[place->second], std::move(result));
    }
    return merged;
}

bool tellsMoreThanFlags(const IMAPFetchResult& result) {
    return result.envelope || result.bodyStructure || result.size || result.internalDate;
}

/// The whole groups of base64 that a cut-off beginning holds.
Bytes decodedBeginning(BytesView beginning, const std::string& encoding) {
    if (encoding != "base64") return decodeTransfer(beginning, encoding);
    Bytes characters(beginning);
    std::erase_if(characters, [](char c) { return c == '\r' || c == '\n'; });
    characters.resize(characters.size() / 4 * 4);
    return decodeTransfer(characters, encoding);
}

/// Quoted-printable that stops inside an escape, without what there is of it.
BytesView withoutBrokenEscape(BytesView bytes) {
    return bytes.substr(0, bytes.find('=', bytes.size() - std::min<std::size_t>(bytes.size(), 2)));
}

/// The text of bytes that may stop inside a character, without what there is of it.
std::string decodedCutText(BytesView bytes, std::string_view charset) {
    constexpr std::size_t longestRest = 3;
    for (const auto& encoding : {charsetEncoding(charset).value_or(Charset::utf8()), Charset::utf8()}) {
        for (std::size_t rest = 0; rest <= std::min(longestRest, bytes.size()); ++rest) {
            if (auto text = encoding.decoded(bytes.substr(0, bytes.size() - rest))) return *std::move(text);
        }
    }
    return decodeText(bytes, charset);
}

}

bool marksMailing(const MIMEHeaders& headers) {
    if (headers.value("List-Unsubscribe") || headers.value("List-Id")) return true;
    const auto precedence = headers.value("Precedence");
    return precedence &&
           (text::containsIgnoringCase(*precedence, "bulk") || text::containsIgnoringCase(*precedence, "list"));
}

FetchedHeads fetchedHeads(std::vector<IMAPFetchResult> results,
                          const std::function<bool(const IMAPFetchResult&)>& isAsked, Date now) {
    FetchedHeads heads;
    auto merged = mergedByUID(std::move(results));
    heads.messages.reserve(merged.size());
    for (IMAPFetchResult& result : merged) {
        const bool wasAsked = isAsked(result);
        if (wasAsked && tellsMoreThanFlags(result)) {
            heads.messages.push_back(syncedMessage(std::move(result), now));
            continue;
        }
        if (wasAsked) heads.bare.push_back(*result.uid);
        if (result.flags) heads.flags.insert_or_assign(*result.uid, *std::move(result.flags));
    }
    return heads;
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
    const auto parameter = part.parameters.find("charset");
    const std::string_view charset = parameter == part.parameters.end() ? std::string_view{} : parameter->second;
    const bool isCut = std::cmp_less(beginning.size(), part.size);
    if (isCut && part.encoding == "quoted-printable") beginning = withoutBrokenEscape(beginning);
    const Bytes bytes = decodedBeginning(beginning, part.encoding);
    const std::string text = isCut ? decodedCutText(bytes, charset) : decodeText(bytes, charset);
    return snippet(part.subtype == "html" ? htmlToPlainText(text) : text, std::nullopt);
}

}
