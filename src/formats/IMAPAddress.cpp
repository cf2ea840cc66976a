#include "formats/IMAPAddress.h"

#include "base/Text.h"

#include <algorithm>

namespace velmo {

namespace {

bool isBlankOrControl(char c) {
    return c == ' ' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

}

std::string IMAPAddress::formatted() const {
    if (!name || name->empty()) return email;
    if (name->find_first_of(",;:<>@\"()[]\\.") == std::string::npos) return *name + " <" + email + ">";
    return "\"" + text::replacedAll(*name, "\"", "\\\"") + "\" <" + email + ">";
}

std::optional<std::string> domainOf(std::string_view email) {
    const auto pieces = text::split(email, '@');
    if (pieces.size() != 2 || pieces[0].empty()) return std::nullopt;
    if (std::ranges::any_of(email, isBlankOrControl)) return std::nullopt;
    std::string domain = text::lowered(pieces[1]);
    if (domain.find('.') == std::string::npos || domain.front() == '.') return std::nullopt;
    return domain;
}

}
