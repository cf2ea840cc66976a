#include "protocols/SMTPError.h"

#include "base/Localisation.h"
#include "base/Text.h"

#include <utility>

namespace velmo {

namespace {

/// Code points of a server's words that an error shows.
constexpr std::size_t shownLength = 400;

/// C0, DEL and C1, and the marks that turn the direction of text or break its lines.
bool isUnprintable(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || (c >= 0x200E && c <= 0x200F) || (c >= 0x2028 && c <= 0x202E) ||
           (c >= 0x2066 && c <= 0x2069);
}

std::string printable(std::string_view text) {
    const std::string repaired = text::repairedUTF8(text);
    const std::string_view shown = text::firstCodePoints(repaired, shownLength);
    std::string result;
    for (std::size_t position = 0; position < shown.size();) {
        const char32_t c = text::nextCodePoint(shown, position);
        text::appendUTF8(result, isUnprintable(c) ? U' ' : c);
    }
    if (shown.size() < repaired.size()) result += "…";
    return result;
}

}

SMTPError::SMTPError(Kind kind, std::string sentence, std::string text, std::string stage)
    : UserError(std::move(sentence)), kind_(kind), stage_(std::move(stage)), text_(std::move(text)) {}

SMTPError SMTPError::connection(const MailConnectionError& error) {
    SMTPError result(Kind::connection, error.sentence(), {});
    result.connectionError_ = error;
    return result;
}

SMTPError SMTPError::rejected(std::string stage, std::string_view reply) {
    std::string text = printable(reply);
    std::string sentence = tr("The outgoing mail server refused the message ({}): {}", stage, text);
    return {Kind::rejected, std::move(sentence), std::move(text), std::move(stage)};
}

SMTPError SMTPError::deferred(std::string stage, std::string_view reply) {
    SMTPError result = rejected(std::move(stage), reply);
    result.isTemporary_ = true;
    return result;
}

SMTPError SMTPError::unexpected(std::string_view words) {
    std::string text = printable(words);
    std::string sentence = tr("The outgoing mail server sent something unexpected: {}", text);
    return {Kind::unexpected, std::move(sentence), std::move(text)};
}

SMTPError SMTPError::authenticationFailed() {
    return {Kind::authenticationFailed, tr("The outgoing mail server didn't accept your sign-in."), {}};
}

SMTPError SMTPError::asUncertain() const {
    SMTPError result = *this;
    result.isUncertain_ = true;
    return result;
}

}
