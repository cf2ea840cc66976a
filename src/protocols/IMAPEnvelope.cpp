#include "protocols/IMAPEnvelope.h"

#include "base/Text.h"
#include "formats/HeaderWords.h"
#include "formats/MailDate.h"

namespace velmo {

namespace {

/// One blank in place of each line break and the white space around it.
std::string unfolded(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\r' && text[i] != '\n') {
            out += text[i];
            continue;
        }
        while (i + 1 < text.size() && text::isSpace(text[i + 1])) ++i;
        while (!out.empty() && (out.back() == ' ' || out.back() == '\t')) out.pop_back();
        if (!out.empty() && i + 1 < text.size()) out += ' ';
    }
    return out;
}

std::optional<std::string> decoded(IMAPValue value) {
    const auto text = imapText(value);
    if (!text) return std::nullopt;
    return decodeHeaderWords(*text);
}

std::vector<IMAPAddress> readAddresses(IMAPValue value) {
    std::vector<IMAPAddress> addresses;
    for (const IMAPValue element : value.children()) {
        const std::vector<IMAPValue> fields = element.children().taken(4);
        if (fields.size() < 4) continue;
        const auto mailbox = imapText(fields[2]);
        const auto host = imapText(fields[3]);
        if (!mailbox || !host) continue;
        IMAPAddress address;
        address.name = decoded(fields[0]);
        if (address.name && address.name->empty()) address.name.reset();
        address.email = *mailbox + "@" + *host;
        addresses.push_back(std::move(address));
    }
    return addresses;
}

}

std::optional<IMAPEnvelope> readEnvelope(IMAPValue value) {
    const std::vector<IMAPValue> fields = value.children().taken(10);
    if (fields.size() < 10) return std::nullopt;
    IMAPEnvelope envelope;
    if (const auto date = imapText(fields[0])) envelope.date = parseDate(*date);
    if (const auto subject = decoded(fields[1])) envelope.subject = unfolded(*subject);
    envelope.from = readAddresses(fields[2]);
    envelope.sender = readAddresses(fields[3]);
    envelope.replyTo = readAddresses(fields[4]);
    envelope.to = readAddresses(fields[5]);
    envelope.cc = readAddresses(fields[6]);
    envelope.bcc = readAddresses(fields[7]);
    envelope.inReplyTo = imapText(fields[8]);
    envelope.messageID = imapText(fields[9]);
    return envelope;
}

}
