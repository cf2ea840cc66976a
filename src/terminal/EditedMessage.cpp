#include "terminal/EditedMessage.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "formats/Invisibles.h"
#include "formats/OutgoingMessage.h"
#include "formats/WhiteSpace.h"
#include "terminal/Console.h"
#include "terminal/Failure.h"
#include "terminal/InputText.h"

#include <array>
#include <utility>

namespace velmo {

namespace {

using Addresses = std::vector<IMAPAddress>;

constexpr std::array<std::pair<std::string_view, Addresses EditedMessage::*>, 3> recipientFields{
    std::pair("To", &EditedMessage::to), std::pair("Cc", &EditedMessage::cc), std::pair("Bcc", &EditedMessage::bcc)};
constexpr std::string_view subjectField = "Subject";

std::string inOneLine(std::string_view text) {
    return printable(collapsedWhiteSpace(withoutInvisibles(text::repairedUTF8(text))));
}

std::string recipientLines(const Addresses& addresses) {
    std::string lines;
    for (const auto& address : addresses) {
        IMAPAddress shown = address;
        if (shown.name) shown.name = inOneLine(*shown.name);
        if (shown.name && shown.name->empty()) shown.name.reset();
        lines += (lines.empty() ? " " : ",\n    ") + inOneLine(shown.formatted());
    }
    return lines;
}

/// Takes a line off the text.
std::string_view takeLine(std::string_view& text) {
    const auto end = text.find('\n');
    const auto line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

void takeField(std::string_view line, std::string_view value, EditedMessage& message) {
    const auto colon = line.find(':');
    const auto name = text::trimmedUnicode(line.substr(0, colon));
    if (colon != std::string_view::npos) {
        if (text::equalsIgnoringCase(name, subjectField)) {
            message.subject = text::trimmedUnicode(value);
            return;
        }
        for (const auto& [field, addresses] : recipientFields) {
            if (!text::equalsIgnoringCase(name, field)) continue;
            const auto more = typedAddresses(value);
            (message.*addresses).insert((message.*addresses).end(), more.begin(), more.end());
            return;
        }
    }
    throw CommandError(
        tr("The lines above the text are To, Cc, Bcc and Subject, with a blank line below them. This one "
           "is none of them: {}",
           shownWord(std::string(line))));
}

}

std::string editorText(const EditedMessage& message, const std::vector<std::string>& remarks, EditorRoom room) {
    std::string text;
    for (const auto& remark : remarks) text += "# " + inOneLine(remark) + "\n";
    for (const auto& [name, addresses] : recipientFields)
        text += std::string(name) + ":" + recipientLines(message.*addresses) + "\n";
    text += std::string(subjectField) + ": " + inOneLine(message.subject) + "\n\n";
    if (room == EditorRoom::above && !message.body.empty()) text += "\n\n";
    return text + message.body;
}

EditedMessage editedMessage(std::string_view file) {
    EditedMessage message;
    if (text::trimmedUnicode(file).empty()) throw CommandError(tr("No text is left, so nothing is done."));
    bool hasHead = false;
    while (!file.empty()) {
        const auto line = takeLine(file);
        if (text::trimmedUnicode(line).empty()) break;
        if (line.starts_with('#')) continue;
        std::string value(line.substr(std::min(line.size(), line.find(':') + 1)));
        while (file.starts_with(' ') || file.starts_with('\t')) {
            if (text::trimmedUnicode(file.substr(0, file.find('\n'))).empty()) break;
            value += ' ' + std::string(text::trimmedUnicode(takeLine(file)));
        }
        takeField(line, value, message);
        hasHead = true;
    }
    if (!hasHead) throw CommandError(tr("The lines with the recipients above the text are gone, so nothing is done."));
    message.body = text::trimmed(file, "\n");
    if (text::trimmedUnicode(message.body).empty()) throw CommandError(tr("No text is left, so nothing is done."));
    return message;
}

std::vector<IMAPAddress> typedAddresses(std::string_view words) {
    std::vector<IMAPAddress> addresses;
    for (const auto each : OutgoingMessage::splitAddressList(words)) {
        const auto piece = text::trimmedUnicode(each);
        if (piece.empty()) continue;
        auto address = OutgoingMessage::parseAddress(text::repairedUTF8(piece));
        if (!address) throw CommandError(tr("Check these addresses: {}", shownWord(std::string(piece))));
        addresses.push_back(*std::move(address));
    }
    return addresses;
}

}
