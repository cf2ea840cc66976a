#include "protocols/MailboxNames.h"

#include "base/Text.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace velmo {

namespace {

constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+,";

/// The UTF-16 that the digits stand for; absent when they are none.
std::optional<std::u16string> unitsOf(std::string_view encoded) {
    std::u16string units;
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char c : encoded) {
        const auto digit = digits.find(c);
        if (digit == std::string_view::npos) return std::nullopt;
        bits = (bits << 6U | static_cast<std::uint32_t>(digit)) & 0xFFFFFFU;
        count += 6;
        if (count < 16) continue;
        count -= 16;
        units += static_cast<char16_t>(bits >> count & 0xFFFFU);
    }
    const bool isWhole = count < 6 && (bits & ((1U << count) - 1U)) == 0;
    return isWhole && !units.empty() ? std::optional(units) : std::nullopt;
}

bool isHigh(char16_t unit) {
    return (unit & 0xFC00U) == 0xD800U;
}

bool isLow(char16_t unit) {
    return (unit & 0xFC00U) == 0xDC00U;
}

/// False when half of a pair stands alone, or a control character was hidden.
bool append(std::string& out, const std::u16string& units) {
    for (std::size_t i = 0; i < units.size(); ++i) {
        char32_t c = units[i];
        if (isHigh(units[i]) && i + 1 < units.size() && isLow(units[i + 1]))
            c = 0x10000U + ((c & 0x3FFU) << 10U) + (units[++i] & 0x3FFU);
        else if (isHigh(units[i]) || isLow(units[i]) || c < 0x20)
            return false;
        text::appendUTF8(out, c);
    }
    return true;
}

std::optional<std::string> decoded(std::string_view name) {
    std::string out;
    while (!name.empty()) {
        const auto start = name.find('&');
        out += name.substr(0, start);
        if (start == std::string_view::npos) break;
        const auto end = name.find('-', start);
        if (end == std::string_view::npos) return std::nullopt;
        const auto encoded = name.substr(start + 1, end - start - 1);
        const auto units = unitsOf(encoded);
        if (encoded.empty())
            out += '&';
        else if (!units || !append(out, *units))
            return std::nullopt;
        name.remove_prefix(end + 1);
    }
    return out;
}

}

std::string decodedMailboxName(std::string_view name) {
    const bool isASCII = std::ranges::all_of(name, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    auto readable = isASCII ? decoded(name) : std::nullopt;
    return readable ? *std::move(readable) : std::string(name);
}

}
