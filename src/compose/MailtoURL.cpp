#include "compose/MailtoURL.h"

#include "base/Text.h"
#include "compose/AddressChips.h"
#include "formats/OutgoingMessage.h"

#include <algorithm>
#include <iterator>

namespace velmo {

namespace {

constexpr auto npos = std::string_view::npos;

/// RFC 3986 §2.1, as UTF-8. A plus is a plus: only forms write it for a blank.
std::string percentDecoded(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? text::hexValue(text[i + 1]) : -1;
        const int low = high >= 0 ? text::hexValue(text[i + 2]) : -1;
        if (low < 0) {
            out += text[i];
            continue;
        }
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return text::repairedUTF8(out);
}

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

std::string inOneLine(std::string_view encoded) {
    std::string line = text::replacedAll(percentDecoded(encoded), "\r\n", " ");
    std::ranges::replace_if(line, isControl, ' ');
    return line;
}

std::string inLines(std::string_view encoded) {
    std::string text = text::replacedAll(percentDecoded(encoded), "\r\n", "\n");
    std::ranges::replace(text, '\r', '\n');
    std::erase_if(text, [](char c) { return isControl(c) && c != '\n' && c != '\t'; });
    return text;
}

/// The addresses in the order of the link, some of them twice.
struct Addresses {
    std::vector<IMAPAddress> to, cc, bcc;
};

void append(std::vector<IMAPAddress>& list, std::string_view encoded) {
    auto more = OutgoingMessage::parseAddressList(inOneLine(encoded));
    std::ranges::move(more, std::back_inserter(list));
}

void take(MailtoURL& url, Addresses& addresses, std::string_view name, std::string_view value) {
    if (name == "to") append(addresses.to, value);
    if (name == "cc") append(addresses.cc, value);
    if (name == "bcc") append(addresses.bcc, value);
    if (name == "subject" && url.subject.empty()) url.subject = inOneLine(value);
    if (name == "body" && url.body.empty()) url.body = inLines(value);
}

void readItems(MailtoURL& url, Addresses& addresses, std::string_view query) {
    for (const auto item : text::split(query, '&')) {
        const auto equals = item.find('=');
        if (equals == npos) continue;
        take(url, addresses, text::lowered(percentDecoded(item.substr(0, equals))), item.substr(equals + 1));
    }
}

}

std::optional<MailtoURL> MailtoURL::parse(std::string_view url) {
    constexpr std::string_view scheme = "mailto:";
    url = text::trimmed(url);
    if (!text::startsWithIgnoringCase(url, scheme)) return std::nullopt;
    url.remove_prefix(scheme.size());
    url = url.substr(0, url.find('#'));

    MailtoURL parsed;
    Addresses addresses;
    const auto question = std::min(url.find('?'), url.size());
    append(addresses.to, url.substr(0, question));
    if (question < url.size()) readItems(parsed, addresses, url.substr(question + 1));
    addAddresses(parsed.to, addresses.to);
    addAddresses(parsed.cc, addresses.cc);
    addAddresses(parsed.bcc, addresses.bcc);
    return parsed;
}

}
