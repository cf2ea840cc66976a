#include "formats/ListUnsubscribe.h"

#include "base/Text.h"

#include <algorithm>

namespace velmo {

namespace {

struct URL {
    std::string scheme; // lower-case
    std::string_view whole;
};

/// RFC 3986 §3: a scheme, a colon, and something without blanks behind it.
std::optional<URL> url(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || colon + 1 == text.size() || !text::isAlpha(text.front()))
        return std::nullopt;
    const auto scheme = text.substr(0, colon);
    const auto belongs = [](char c) {
        return text::isAlpha(c) || text::isDigit(c) || std::string_view{"+-."}.contains(c);
    };
    const auto visible = [](char c) { return static_cast<unsigned char>(c) > ' ' && c != '\x7F'; };
    if (!std::ranges::all_of(scheme, belongs) || !std::ranges::all_of(text, visible)) return std::nullopt;
    return URL{text::lowered(scheme), text};
}

}

ListUnsubscribe listUnsubscribe(const MIMEHeaders& headers) {
    ListUnsubscribe result;
    bool isSecure = false;
    for (const auto piece : text::split(headers.value("List-Unsubscribe").value_or(""), ',')) {
        const auto target = url(text::trimmed(piece, " \t<>"));
        if (!target) continue;
        if (!result.web && (target->scheme == "https" || target->scheme == "http")) {
            result.web = target->whole;
            isSecure = target->scheme == "https";
        }
        if (!result.mail && target->scheme == "mailto") result.mail = target->whole;
    }
    const auto post = headers.value("List-Unsubscribe-Post");
    result.oneClick = isSecure && post && text::containsIgnoringCase(*post, "one-click");
    return result;
}

}
