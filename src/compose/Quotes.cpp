#include "compose/Quotes.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "formats/HTMLText.h"
#include "formats/Invisibles.h"
#include "formats/ShownAddress.h"
#include "formats/WhiteSpace.h"
#include "platform/CaseFolding.h"
#include "platform/DateText.h"

#include <vector>

namespace velmo {

namespace {

IMAPAddress senderOf(const MessageRecord& record) {
    IMAPAddress sender;
    sender.email = collapsedWhiteSpace(record.fromEmail);
    if (const std::string name = collapsedWhiteSpace(record.fromName); !name.empty()) sender.name = name;
    return sender;
}

std::string quotedAddress(const IMAPAddress& address) {
    const std::string name = address.name.value_or("");
    return name.contains('@') ? shownAddress(name, address.email) : collapsedWhiteSpace(address.formatted());
}

std::string joined(const std::vector<IMAPAddress>& addresses) {
    std::string line;
    for (const auto& address : addresses) {
        if (!line.empty()) line += ", ";
        line += quotedAddress(address);
    }
    return line;
}

std::string quoted(std::string_view text) {
    std::string out;
    out.reserve(text.size() + text.size() / 16);
    for (const auto line : text::split(text, '\n')) {
        if (!out.empty()) out += '\n';
        out += line.empty() ? ">" : "> ";
        out += line;
    }
    return out;
}

}

std::string prefixed(std::string_view prefix, std::string_view subject) {
    subject = text::trimmedUnicode(subject);
    if (foldedCase(subject).starts_with(foldedCase(prefix))) return std::string(subject);
    return std::string(prefix) + " " + std::string(subject);
}

std::string cleanedForQuoting(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::size_t length = 0; // up to the last line that is not empty
    bool isFirst = true, wasBlank = false;
    for (const auto raw : text::split(text, '\n')) {
        const std::string scrubbed = withoutInvisibles(raw);
        const auto line = text::trimmedUnicode(scrubbed);
        if (line.empty() && wasBlank) continue;
        if (!isFirst) out += '\n';
        out += line;
        if (!line.empty()) length = out.size();
        wasBlank = line.empty();
        isFirst = false;
    }
    out.resize(length);
    return out;
}

std::string quotableText(const ParsedMessage& message) {
    std::string text = cleanedForQuoting(message.plainText.value_or(""));
    if (text.empty() && message.html) text = cleanedForQuoting(htmlToPlainText(*message.html));
    return text;
}

std::string senderLine(const MessageRecord& record) {
    return shownAddress(record.fromName, record.fromEmail);
}

std::string replyQuote(const MessageRecord& record, const ParsedMessage& message) {
    const std::string date = dateText(record.date, DateStyle::abbreviated);
    return tr("On {}, {} wrote:", date, senderLine(record)) + "\n" + quoted(quotableText(message));
}

std::string forwardLine() {
    return tr("---------- Forwarded message ----------");
}

std::string forwardQuote(const MessageRecord& record, const ParsedMessage& message) {
    std::string quote = forwardLine();
    quote += "\nFrom: " + quotedAddress(senderOf(record));
    quote += "\nDate: " + dateText(record.date, DateStyle::complete);
    quote += "\nSubject: " + collapsedWhiteSpace(record.subject);
    if (!record.to.empty()) quote += "\nTo: " + joined(record.to);
    if (!record.cc.empty()) quote += "\nCc: " + joined(record.cc);
    return quote + "\n\n" + quotableText(message);
}

}
