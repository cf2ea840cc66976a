#include "formats/Entities.h"

#include "base/Text.h"
#include "formats/EntityNames.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace velmo {

namespace {

/// How far behind "&" its ";" may stand, in characters.
constexpr std::size_t reach = longestEntityName + 1;

/// What a text needs otherwise than a page: blanks that break a line, and nothing for what is not seen. In any case, as
/// senders write the common ones.
constexpr struct {
    std::string_view name;
    std::string_view text;
} names[] = {
    {"amp", "&"},        {"lt", "<"},          {"gt", ">"},         {"quot", "\""},      {"apos", "'"},
    {"nbsp", " "},       {"zwnj", ""},         {"zwj", ""},         {"shy", ""},         {"reg", "\u00AE"},
    {"trade", "\u2122"}, {"hellip", "\u2026"}, {"mdash", "\u2014"}, {"ndash", "\u2013"}, {"rsquo", "\u2019"},
    {"lsquo", "\u2018"}, {"rdquo", "\u201D"},  {"ldquo", "\u201C"}, {"copy", "\u00A9"},
};

/// "#233" or "#xE9".
std::optional<std::string> numbered(std::string_view reference) {
    reference.remove_prefix(1);
    const bool hexadecimal = reference.starts_with('x') || reference.starts_with('X');
    if (hexadecimal) reference.remove_prefix(1);
    if (reference.empty()) return std::nullopt;
    std::uint64_t value = 0;
    for (const char c : reference) {
        const int digit = text::hexValue(c);
        if (digit < 0 || (!hexadecimal && digit > 9) || value > 0x10FFFF) return std::nullopt;
        value = value * (hexadecimal ? 16 : 10) + static_cast<std::uint64_t>(digit);
    }
    if (value == 0) return "\uFFFD";
    if (value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return std::nullopt;
    std::string character;
    text::appendUTF8(character, static_cast<char32_t>(value));
    return character;
}

std::optional<std::string> replacement(std::string_view reference) {
    if (reference.starts_with('#')) return numbered(reference);
    const auto* found =
        std::ranges::find_if(names, [&](const auto& known) { return text::equalsIgnoringCase(reference, known.name); });
    if (found != std::end(names)) return std::string(found->text);
    const auto named = namedEntity(reference);
    return named ? std::optional(std::string(*named)) : std::nullopt;
}

}

std::string decodeEntities(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (;;) {
        const auto ampersand = text.find('&');
        out += text.substr(0, ampersand);
        if (ampersand == std::string_view::npos) return out;
        text.remove_prefix(ampersand + 1);
        const auto end = text.substr(0, reach).find(';');
        const auto decoded = end == std::string_view::npos ? std::nullopt : replacement(text.substr(0, end));
        out += decoded ? *decoded : "&";
        if (decoded) text.remove_prefix(end + 1);
    }
}

}
