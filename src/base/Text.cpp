#include "base/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

namespace velmo::text {

namespace {

template <class Change>
std::string mapped(std::string_view text, Change change) {
    std::string out(text);
    for (char& c : out) c = change(c);
    return out;
}

template <class Number>
std::optional<Number> parseNumber(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

/// Length of the well-formed sequence at the front, or 0; `bad` is then the length of the maximal ill-formed part.
std::size_t sequenceLength(const unsigned char* p, std::size_t left, std::size_t& bad) {
    const unsigned char c = p[0];
    bad = 1;
    if (c < 0x80) return 1;
    std::size_t need = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (c >= 0xC2 && c <= 0xDF)
        need = 1;
    else if (c >= 0xE0 && c <= 0xEF) {
        need = 2;
        if (c == 0xE0) low = 0xA0;
        if (c == 0xED) high = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        need = 3;
        if (c == 0xF0) low = 0x90;
        if (c == 0xF4) high = 0x8F;
    } else
        return 0;
    for (std::size_t i = 1; i <= need; ++i) {
        if (i >= left || p[i] < low || p[i] > high) return 0;
        bad = i + 1;
        low = 0x80;
        high = 0xBF;
    }
    return need + 1;
}

/// Number of bytes from the front that are ASCII.
std::size_t asciiRun(const unsigned char* p, std::size_t size) {
    std::size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, p + i, 8);
        if (word & 0x8080808080808080ULL) break;
    }
    while (i < size && p[i] < 0x80) ++i;
    return i;
}

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

/// Number of bytes from the front that are well-formed UTF-8.
std::size_t validPrefix(BytesView bytes) {
    const auto* p = bytesOf(bytes);
    std::size_t i = 0, bad = 0;
    while (i < bytes.size()) {
        if (p[i] < 0x80) {
            i += asciiRun(p + i, bytes.size() - i);
            continue;
        }
        const std::size_t length = sequenceLength(p + i, bytes.size() - i, bad);
        if (length == 0) return i;
        i += length;
    }
    return i;
}

constexpr std::string_view base64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr auto base64Values = [] {
    std::array<signed char, 256> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < base64Alphabet.size(); ++i)
        values[static_cast<unsigned char>(base64Alphabet[i])] = static_cast<signed char>(i);
    return values;
}();

}

std::string lowered(std::string_view text) {
    return mapped(text, lower);
}
std::string raised(std::string_view text) {
    return mapped(text, upper);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && startsWithIgnoringCase(a, b);
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

bool containsIgnoringCase(std::string_view text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char x, char y) { return lower(x) == lower(y); }) != text.end();
}

std::string_view trimmed(std::string_view text, std::string_view characters) {
    const auto first = text.find_first_not_of(characters);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (;;) {
        const auto end = text.find(separator);
        pieces.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return pieces;
        text.remove_prefix(end + 1);
    }
}

std::string replacedAll(std::string_view text, std::string_view what, std::string_view with) {
    std::string out;
    out.reserve(text.size());
    for (;;) {
        const auto at = what.empty() ? std::string_view::npos : text.find(what);
        out += text.substr(0, at);
        if (at == std::string_view::npos) return out;
        out += with;
        text.remove_prefix(at + what.size());
    }
}

std::optional<std::uint64_t> parseUnsigned64(std::string_view text) {
    return parseNumber<std::uint64_t>(text);
}
std::optional<std::uint32_t> parseUnsigned32(std::string_view text) {
    return parseNumber<std::uint32_t>(text);
}

std::optional<std::int64_t> parseSigned64(std::string_view text) {
    if (text.starts_with('+') && text.size() > 1 && isDigit(text[1])) text.remove_prefix(1);
    return parseNumber<std::int64_t>(text);
}

bool isValidUTF8(BytesView bytes) {
    return validPrefix(bytes) == bytes.size();
}

std::string repairedUTF8(BytesView bytes) {
    std::size_t good = validPrefix(bytes);
    std::string out(bytes.substr(0, good));
    while (good < bytes.size()) {
        bytes.remove_prefix(good);
        std::size_t bad = 1;
        sequenceLength(bytesOf(bytes), bytes.size(), bad);
        out += "\xEF\xBF\xBD";
        bytes.remove_prefix(bad);
        good = validPrefix(bytes);
        out += bytes.substr(0, good);
    }
    return out;
}

void appendUTF8(std::string& out, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    const auto put = [&out](char32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (c < 0x80)
        put(c);
    else if (c < 0x800) {
        put(0xC0 | (c >> 6));
        put(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        put(0xE0 | (c >> 12));
        put(0x80 | ((c >> 6) & 0x3F));
        put(0x80 | (c & 0x3F));
    } else {
        put(0xF0 | (c >> 18));
        put(0x80 | ((c >> 12) & 0x3F));
        put(0x80 | ((c >> 6) & 0x3F));
        put(0x80 | (c & 0x3F));
    }
}

char32_t nextCodePoint(std::string_view utf8, std::size_t& position) {
    const auto* p = bytesOf(utf8) + position;
    std::size_t bad = 0;
    const std::size_t length = sequenceLength(p, utf8.size() - position, bad);
    if (length == 0) {
        position += bad;
        return 0xFFFD;
    }
    position += length;
    switch (length) {
    case 1: return p[0];
    case 2: return (p[0] & 0x1FU) << 6 | (p[1] & 0x3FU);
    case 3: return (p[0] & 0x0FU) << 12 | (p[1] & 0x3FU) << 6 | (p[2] & 0x3FU);
    default: return (p[0] & 0x07U) << 18 | (p[1] & 0x3FU) << 12 | (p[2] & 0x3FU) << 6 | (p[3] & 0x3FU);
    }
}

std::string_view firstCodePoints(std::string_view utf8, std::size_t count) {
    if (utf8.size() <= count) return utf8;
    // A code point ends where a byte follows that begins another.
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const bool begins = (static_cast<unsigned char>(utf8[i]) & 0xC0) != 0x80;
        if (begins && count-- == 0) return utf8.substr(0, i);
    }
    return utf8;
}

bool isUnicodeSpace(char32_t c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

std::string_view trimmedUnicode(std::string_view utf8) {
    std::size_t start = 0;
    while (start < utf8.size()) {
        std::size_t next = start;
        if (!isUnicodeSpace(nextCodePoint(utf8, next))) break;
        start = next;
    }
    std::size_t end = utf8.size();
    while (end > start) {
        std::size_t before = end - 1;
        while (before > start && (static_cast<unsigned char>(utf8[before]) & 0xC0) == 0x80) --before;
        std::size_t next = before;
        if (!isUnicodeSpace(nextCodePoint(utf8, next)) || next != end) break;
        end = before;
    }
    return utf8.substr(start, end - start);
}

std::string base64(BytesView bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    const auto* p = bytesOf(bytes);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t left = bytes.size() - i;
        const std::uint32_t group = static_cast<std::uint32_t>(p[i]) << 16 |
                                    (left > 1 ? static_cast<std::uint32_t>(p[i + 1]) << 8 : 0U) |
                                    (left > 2 ? static_cast<std::uint32_t>(p[i + 2]) : 0U);
        out += base64Alphabet[group >> 18];
        out += base64Alphabet[group >> 12 & 63];
        out += left > 1 ? base64Alphabet[group >> 6 & 63] : '=';
        out += left > 2 ? base64Alphabet[group & 63] : '=';
    }
    return out;
}

std::optional<Bytes> decodedBase64(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    Bytes out;
    out.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const std::size_t letters = i + 4 == text.size() ? 4 - padding : 4;
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            const int value = k < letters ? base64Values[static_cast<unsigned char>(text[i + k])] : 0;
            if (value < 0) return std::nullopt;
            group = group << 6 | static_cast<std::uint32_t>(value);
        }
        for (std::size_t k = 0; k + 1 < letters; ++k) out += static_cast<char>(group >> (16 - 8 * k) & 0xFF);
    }
    return out;
}

}
