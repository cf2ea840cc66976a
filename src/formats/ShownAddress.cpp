#include "formats/ShownAddress.h"

#include "base/Text.h"
#include "formats/Addresses.h"
#include "formats/HeaderWords.h"
#include "formats/Invisibles.h"
#include "formats/WhiteSpace.h"

#include <algorithm>
#include <array>

namespace velmo {

namespace {

std::string inOneLine(std::string_view text) {
    return collapsedWhiteSpace(withoutInvisibles(text));
}

/// Also the signs that look the same.
bool holdsAt(std::string_view text) {
    constexpr std::array<std::string_view, 3> signs{"@", "\uFE6B", "\uFF20"};
    return std::ranges::any_of(signs, [text](auto sign) { return text.contains(sign); });
}

}

std::string shownAddress(std::string_view name, std::string_view email) {
    std::string address = inOneLine(email);
    std::string shown = inOneLine(name);
    if (shown.empty() || text::equalsIgnoringCase(shown, address)) return address;
    if (address.empty()) return shown;
    return holdsAt(shown) ? address + " (" + shown + ")" : shown + " <" + address + ">";
}

std::string shortAddress(std::string_view name, std::string_view email) {
    std::string shown = inOneLine(name);
    return shown.empty() || holdsAt(shown) ? shownAddress(name, email) : shown;
}

std::string shownAddresses(std::string_view field) {
    std::string all;
    for (const auto& address : parseAddressList(field))
        all += (all.empty() ? "" : ", ") + shownAddress(address.name.value_or(""), address.email);
    return all.empty() ? inOneLine(decodeHeaderWords(field)) : all;
}

}
