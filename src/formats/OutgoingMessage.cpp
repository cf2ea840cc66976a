#include "formats/OutgoingMessage.h"

#include "base/Text.h"
#include "formats/OutgoingEntity.h"
#include "platform/CaseFolding.h"
#include "platform/LocalTime.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <set>

namespace velmo {

namespace {

constexpr std::string_view lineEnd = "\r\n";

// --- Values of header fields -------------------------------------------------------------------------------------

bool isPrintableASCII(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

/// A line break in a value would begin a field of its own.
std::string inOneLine(std::string_view value) {
    std::string line = text::repairedUTF8(value);
    std::ranges::replace_if(
        line, [](char c) { return c == '\r' || c == '\n' || c == '\0'; }, ' ');
    return line;
}

/// With the name of its field a line must not reach 998 octets (RFC 5322 §2.1.1).
constexpr std::size_t longestWord = 880;

std::string oneEncodedWord(std::string_view value) {
    return "=?UTF-8?B?" + text::base64(value) + "?=";
}

/// RFC 2047: one word, or where that is too long several of at most 75 characters, cut between characters.
std::string encodedWord(std::string_view value) {
    constexpr std::size_t bytesOfWord = 45;
    std::string whole = oneEncodedWord(value);
    if (whole.size() <= longestWord) return whole;
    std::string words;
    while (!value.empty()) {
        std::size_t end = std::min(bytesOfWord, value.size());
        while (end < value.size() && (static_cast<unsigned char>(value[end]) & 0xC0U) == 0x80U) --end;
        words += (words.empty() ? "" : " ") + oneEncodedWord(value.substr(0, end));
        value.remove_prefix(end);
    }
    return words;
}

/// A line is only broken in front of a word, behind all blanks but one.
bool canBeFolded(std::string_view line) {
    std::size_t used = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const bool isBreak = line[i] == ' ' && i + 1 < line.size() && line[i + 1] != ' ';
        used = isBreak ? 0 : used + 1;
        if (used > longestWord) return false;
    }
    return true;
}

std::string unstructured(std::string_view value) {
    std::string line = inOneLine(value);
    return isPrintableASCII(line) && canBeFolded(line) ? line : encodedWord(line);
}

std::string headerForm(const IMAPAddress& address) {
    std::string email = inOneLine(address.email);
    const std::string name = inOneLine(address.name.value_or(""));
    if (name.empty()) return email;
    if (!isPrintableASCII(name) || !canBeFolded(name)) return encodedWord(name) + " <" + email + ">";
    // A backslash of the name must not take the quote that follows it for its own.
    return IMAPAddress{text::replacedAll(name, "\\", "\\\\"), email}.formatted();
}

std::string headerForm(const std::vector<IMAPAddress>& addresses) {
    std::string list;
    for (const auto& address : addresses) {
        if (!list.empty()) list += ", ";
        list += headerForm(address);
    }
    return list;
}

/// RFC 5322 §3.3, in the zone of the machine.
std::string headerForm(Date date) {
    constexpr std::array weekdays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr std::array months{"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const CivilTime time = localTime(date);
    const auto day = std::chrono::floor<std::chrono::days>(date + time.offset);
    const auto minutes = std::abs(time.offset.count());
    return fmt::format("{}, {} {} {:04} {:02}:{:02}:{:02} {}{:02}{:02}",
                       weekdays.at(std::chrono::weekday(day).c_encoding()), time.day,
                       months.at(static_cast<std::size_t>(time.month - 1)), time.year, time.hour, time.minute,
                       time.second, time.offset.count() < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

std::string joined(const std::vector<std::string>& identifiers) {
    std::string list;
    for (const auto& identifier : identifiers) {
        if (identifier.size() > longestWord) continue;
        if (!list.empty()) list += ' ';
        list += inOneLine(identifier);
    }
    return list;
}

/// Breaks a long line at blanks (RFC 5322 §2.2.3); a word that is longer stays whole.
void appendFolded(Bytes& out, std::string_view line) {
    constexpr std::size_t longestWhole = 78, longestFolded = 76;
    if (line.size() <= longestWhole) {
        out.append(line);
        return;
    }
    std::size_t used = 0;
    bool isFirst = true;
    for (const auto word : text::split(line, ' ')) {
        if (!isFirst) {
            // A line of blanks alone would end the head for some.
            const bool fits = word.empty() || used + 1 + word.size() <= longestFolded;
            if (!fits) out.append(lineEnd);
            used = fits ? used + 1 : 1;
            out += ' ';
        }
        out.append(word);
        used += word.size();
        isFirst = false;
    }
}

// --- Parts -------------------------------------------------------------------------------------------------------

/// The type of a part as RFC 2045 §5.1 allows it; a text that is none would end the field or begin a parameter.
std::string mediaType(std::string_view type) {
    const auto isAllowed = [](char c) {
        return text::isAlpha(c) || text::isDigit(c) || std::string_view("!#$&-^_.+/").find(c) != std::string_view::npos;
    };
    const bool isWhole = std::ranges::count(type, '/') == 1 && !type.starts_with('/') && !type.ends_with('/');
    return isWhole && std::ranges::all_of(type, isAllowed) ? std::string(type) : "application/octet-stream";
}

std::string withoutControls(std::string_view value) {
    std::string kept(value);
    std::erase_if(kept, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
    return kept;
}

/// RFC 5987 §3.2.1, with letters and digits left bare.
std::string percentEncoded(std::string_view name) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : name) {
        if (text::isAlpha(c) || text::isDigit(c)) {
            encoded += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        encoded += {'%', digits[byte >> 4U], digits[byte & 15U]};
    }
    return encoded;
}

OutgoingEntity ofData(std::vector<std::string> headers, BytesView data) {
    OutgoingEntity entity;
    entity.headers = std::move(headers);
    entity.headers.emplace_back("Content-Transfer-Encoding: base64");
    entity.content = OutgoingEntity::Data{data};
    return entity;
}

OutgoingEntity entityOf(const InlinePicture& picture) {
    const std::string_view name = picture.mimeType == "image/jpeg" ? "logo.jpg" : "logo.png";
    return ofData({fmt::format("Content-Type: {}; name=\"{}\"", mediaType(picture.mimeType), name),
                   fmt::format("Content-Disposition: inline; filename=\"{}\"", name),
                   fmt::format("Content-ID: <{}>", withoutControls(picture.contentID))},
                  picture.data);
}

/// What may go out as it is, line by line.
bool isOfShortLines(BytesView bytes) {
    std::size_t used = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const bool isEnd = bytes[i] == '\n';
        const bool isAlone = bytes[i] == '\r' && (i + 1 == bytes.size() || bytes[i + 1] != '\n');
        used = isEnd ? 0 : used + 1;
        if (bytes[i] == '\0' || isAlone || used > 999) return false;
    }
    return true;
}

bool hasEightBits(BytesView bytes) {
    return std::ranges::any_of(bytes, [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

/// A message is in nothing but its own lines (RFC 2046 §5.2.1); one that has no such lines goes as a file.
OutgoingEntity ofMessage(std::vector<std::string> headers, BytesView message) {
    OutgoingEntity entity;
    entity.headers = std::move(headers);
    entity.headers.emplace_back(hasEightBits(message) ? "Content-Transfer-Encoding: 8bit"
                                                      : "Content-Transfer-Encoding: 7bit");
    entity.content = OutgoingEntity::Verbatim{message};
    return entity;
}

bool isVerbatim(const OutgoingAttachment& attachment) {
    return text::equalsIgnoringCase(attachment.mimeType, "message/rfc822") && isOfShortLines(attachment.data);
}

/// A name of a length that files have, with its extension.
std::string shortened(const std::string& name) {
    constexpr std::size_t longest = 240, longestExtension = 20;
    if (name.size() <= longest) return name;
    const auto dot = name.rfind('.');
    const bool hasExtension = dot != std::string::npos && name.size() - dot <= longestExtension;
    std::size_t end = longest - longestExtension;
    while ((static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) --end;
    return name.substr(0, end) + (hasExtension ? name.substr(dot) : "");
}

OutgoingEntity entityOf(const OutgoingAttachment& attachment) {
    const std::string name =
        attachment.filename.empty() ? "attachment" : shortened(text::repairedUTF8(attachment.filename));
    const bool isMessage = isVerbatim(attachment);
    const bool isBroken = !isMessage && text::equalsIgnoringCase(attachment.mimeType, "message/rfc822");
    const std::string type = isBroken ? "application/octet-stream" : mediaType(attachment.mimeType);
    const auto entity = isMessage ? ofMessage : ofData;
    // In quotes a backslash would be taken off.
    if (isPrintableASCII(name) && name.find_first_of("\"\\") == std::string::npos)
        return entity({fmt::format("Content-Type: {}; name=\"{}\"", type, name),
                       fmt::format("Content-Disposition: attachment; filename=\"{}\"", name)},
                      attachment.data);
    return entity({fmt::format("Content-Type: {}", type),
                   fmt::format("Content-Disposition: attachment; filename*=UTF-8''{}", percentEncoded(name))},
                  attachment.data);
}

OutgoingEntity entityOf(const OutgoingCalendar& calendar) {
    std::string method = calendar.method;
    std::erase_if(method, [](char c) { return !text::isAlpha(c) && c != '-'; });
    return ofData({fmt::format("Content-Type: text/calendar; charset=\"utf-8\"; method={}", method)}, calendar.text);
}

OutgoingEntity htmlEntity(const OutgoingMessage& message) {
    auto html = OutgoingEntity::ofText("text/html", *message.html);
    if (message.pictures.empty()) return html;
    std::vector<OutgoingEntity> parts;
    parts.push_back(std::move(html));
    for (const auto& picture : message.pictures) parts.push_back(entityOf(picture));
    return OutgoingEntity::ofParts("multipart/related; type=\"text/html\"", std::move(parts));
}

OutgoingEntity bodyEntity(const OutgoingMessage& message) {
    std::vector<OutgoingEntity> alternatives;
    alternatives.push_back(OutgoingEntity::ofText("text/plain", message.plainText));
    if (message.html) alternatives.push_back(htmlEntity(message));
    if (message.calendar) alternatives.push_back(entityOf(*message.calendar));
    if (alternatives.size() == 1) return std::move(alternatives.front());
    return OutgoingEntity::ofParts("multipart/alternative", std::move(alternatives));
}

OutgoingEntity topEntity(const OutgoingMessage& message) {
    auto body = bodyEntity(message);
    if (message.attachments.empty()) return body;
    std::vector<OutgoingEntity> parts;
    parts.push_back(std::move(body));
    bool hasEight = false;
    for (const auto& attachment : message.attachments) {
        parts.push_back(entityOf(attachment));
        hasEight = hasEight || (isVerbatim(attachment) && hasEightBits(attachment.data));
    }
    auto entity = OutgoingEntity::ofParts("multipart/mixed", std::move(parts));
    // What stands in it counts for the whole (RFC 2045 §6.4).
    if (hasEight) entity.headers.emplace_back("Content-Transfer-Encoding: 8bit");
    return entity;
}

std::vector<std::string> topHeaders(const OutgoingMessage& message) {
    std::vector<std::string> lines{"From: " + headerForm(message.from),
                                   "Date: " + headerForm(message.date),
                                   "Message-ID: " + inOneLine(message.messageID),
                                   "Subject: " + unstructured(message.subject),
                                   "MIME-Version: 1.0",
                                   "X-Mailer: Velmo-Mail"};
    if (!message.to.empty()) lines.push_back("To: " + headerForm(message.to));
    if (!message.cc.empty()) lines.push_back("Cc: " + headerForm(message.cc));
    if (message.inReplyTo && message.inReplyTo->size() <= longestWord)
        lines.push_back("In-Reply-To: " + inOneLine(*message.inReplyTo));
    if (!message.references.empty()) lines.push_back("References: " + joined(message.references));
    return lines;
}

std::string newMessageID(std::string_view sender) {
    const auto at = sender.rfind('@');
    const auto domain = at == std::string_view::npos ? std::string_view("velmo-mail") : sender.substr(at + 1);
    return "<" + text::lowered(UUID::random().text()) + "@" + inOneLine(domain) + ">";
}

}

OutgoingMessage::OutgoingMessage(IMAPAddress sender, Date created)
    : from(std::move(sender)), date(created), messageID(newMessageID(from.email)) {}

bool OutgoingMessage::isEmpty() const {
    return to.empty() && cc.empty() && bcc.empty() && attachments.empty() && subject.empty() &&
           text::trimmedUnicode(plainText).empty();
}

std::vector<std::string> OutgoingMessage::recipients() const {
    std::vector<std::string> all;
    std::set<std::string> seen;
    for (const auto* list : {&to, &cc, &bcc}) {
        for (const auto& address : *list) {
            if (seen.insert(foldedCase(address.email)).second) all.push_back(address.email);
        }
    }
    return all;
}

Bytes OutgoingMessage::build() const {
    return built(BlindCopies::left);
}

Bytes OutgoingMessage::buildDraft() const {
    return built(BlindCopies::told);
}

Bytes OutgoingMessage::built(BlindCopies blindCopies) const {
    auto headers = topHeaders(*this);
    if (blindCopies == BlindCopies::told && !bcc.empty()) headers.push_back("Bcc: " + headerForm(bcc));
    const OutgoingEntity top = topEntity(*this);
    headers.insert(headers.end(), top.headers.begin(), top.headers.end());
    std::size_t length = top.estimatedLength();
    for (const auto& line : headers) length += line.size() + line.size() / 8 + 8;
    Bytes out;
    out.reserve(length);
    for (const auto& line : headers) {
        appendFolded(out, line);
        out.append(lineEnd);
    }
    out.append(lineEnd);
    top.appendBody(out);
    return out;
}

// --- Typed addresses ---------------------------------------------------------------------------------------------

namespace {

/// A name as it was typed, out of its quotes (RFC 5322 §3.2.4).
std::string typedName(std::string_view typed) {
    const bool isQuoted = typed.size() > 1 && typed.starts_with('"') && typed.ends_with('"');
    if (!isQuoted) return std::string(text::trimmed(typed, "\" \t"));
    typed = typed.substr(1, typed.size() - 2);
    std::string name;
    for (std::size_t i = 0; i < typed.size(); ++i) {
        const bool isEscape = typed[i] == '\\' && i + 1 < typed.size() && (typed[i + 1] == '"' || typed[i + 1] == '\\');
        if (isEscape) ++i;
        name += typed[i];
    }
    return std::string(text::trimmed(name, " \t"));
}

}

std::optional<IMAPAddress> OutgoingMessage::parseAddress(std::string_view typed) {
    typed = text::trimmedUnicode(typed);
    // The last ones: a quoted name may hold some as well.
    const auto close = typed.rfind('>');
    const auto open = close == std::string_view::npos ? close : typed.rfind('<', close);
    IMAPAddress address;
    if (open == std::string_view::npos) {
        address.email = typed;
    } else {
        address.email = text::trimmedUnicode(typed.substr(open + 1, close - open - 1));
        auto name = typedName(text::trimmed(typed.substr(0, open), " \t"));
        if (!name.empty()) address.name = std::move(name);
    }
    if (!domainOf(address.email)) return std::nullopt;
    return address;
}

std::vector<IMAPAddress> OutgoingMessage::parseAddressList(std::string_view typed) {
    std::vector<IMAPAddress> all;
    for (const auto piece : splitAddressList(typed)) {
        if (auto address = parseAddress(piece)) all.push_back(std::move(*address));
    }
    return all;
}

std::vector<std::string_view> OutgoingMessage::splitAddressList(std::string_view typed) {
    std::vector<std::string_view> pieces;
    bool isQuoted = false, isBracketed = false;
    std::size_t start = 0;
    for (std::size_t i = 0; i < typed.size(); ++i) {
        const char c = typed[i];
        if (isQuoted && c == '\\' && i + 1 < typed.size()) {
            ++i;
            continue;
        }
        if (c == '"') isQuoted = !isQuoted;
        if (!isQuoted && (c == '<' || c == '>')) isBracketed = c == '<';
        if ((c == ',' || c == ';') && !isQuoted && !isBracketed) {
            pieces.push_back(typed.substr(start, i - start));
            start = i + 1;
        }
    }
    pieces.push_back(typed.substr(start));
    return pieces;
}

}
