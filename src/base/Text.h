#pragma once

#include "base/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Helpers over ASCII and UTF-8 text. None of them depends on the locale, none of them fails.
namespace velmo::text {

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool isAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
/// Space, tab, LF, VT, FF, CR.
constexpr bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}
constexpr char upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
}
/// The value of a hexadecimal digit in either case, -1 for any other character.
constexpr int hexValue(char c) {
    if (isDigit(c)) return c - '0';
    const char l = lower(c);
    return l >= 'a' && l <= 'f' ? l - 'a' + 10 : -1;
}

/// ASCII letters lowered or raised; all other bytes stay.
std::string lowered(std::string_view text);
std::string raised(std::string_view text);
/// Equality without regard to the case of ASCII letters.
bool equalsIgnoringCase(std::string_view a, std::string_view b);
bool startsWithIgnoringCase(std::string_view text, std::string_view prefix);
bool containsIgnoringCase(std::string_view text, std::string_view part);

/// The text without the given characters at both ends; the default is ASCII white space.
std::string_view trimmed(std::string_view text, std::string_view characters = " \t\n\v\f\r");

/// The pieces between separators; empty pieces are kept, so N separators give N + 1 pieces.
std::vector<std::string_view> split(std::string_view text, char separator);

std::string replacedAll(std::string_view text, std::string_view what, std::string_view with);

/// A whole decimal number that fits T, without sign, blanks or trailing characters.
std::optional<std::uint64_t> parseUnsigned64(std::string_view text);
std::optional<std::uint32_t> parseUnsigned32(std::string_view text);
/// The same with an optional leading minus or plus.
std::optional<std::int64_t> parseSigned64(std::string_view text);

// --- UTF-8 (RFC 3629) ------------------------------------------------------------------------------------------

/// True when the bytes are well-formed UTF-8: no overlong forms, surrogates or values above U+10FFFF.
bool isValidUTF8(BytesView bytes);

/// The bytes as UTF-8, each maximal ill-formed sequence replaced by U+FFFD (the practice of Unicode §3.9).
std::string repairedUTF8(BytesView bytes);

/// Appends one code point; anything outside Unicode appends U+FFFD.
void appendUTF8(std::string& out, char32_t codePoint);

/// Decodes the code point that starts at `position` of valid UTF-8, and moves `position` behind it.
char32_t nextCodePoint(std::string_view utf8, std::size_t& position);

/// The first `count` code points of valid UTF-8.
std::string_view firstCodePoints(std::string_view utf8, std::size_t count);

/// True for the white space and newlines of Unicode (White_Space property).
bool isUnicodeSpace(char32_t c);

/// UTF-8 text without Unicode white space at both ends.
std::string_view trimmedUnicode(std::string_view utf8);

// --- base64 (RFC 4648 §4) --------------------------------------------------------------------------------------

std::string base64(BytesView bytes);

/// Strict: whole groups of four with padding, no other characters; absent otherwise.
std::optional<Bytes> decodedBase64(std::string_view text);

}
