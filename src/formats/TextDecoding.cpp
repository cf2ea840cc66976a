#include "formats/TextDecoding.h"

#include "base/Text.h"

#include <algorithm>
#include <initializer_list>

namespace velmo {

std::optional<Charset> charsetEncoding(std::string_view label) {
    label = text::trimmed(label, " \t\r\n\"");
    if (label.empty()) return std::nullopt;
    if (text::equalsIgnoringCase(label, "utf8")) return Charset::utf8();
    for (const std::string_view nothing : {"x-unknown", "unknown-8bit", "8bit"})
        if (text::equalsIgnoringCase(label, nothing)) return std::nullopt;
    return Charset::named(label);
}

namespace {

bool isLabelled(std::string_view label, std::initializer_list<std::string_view> names) {
    label = text::trimmed(label, " \t\r\n\"");
    return std::ranges::any_of(names, [label](std::string_view name) { return text::equalsIgnoringCase(label, name); });
}

/// Pieces of a text that is not well-formed UTF-8.
struct UTF8Pieces {
    std::size_t characters = 0; ///< of several bytes
    std::size_t faults = 0;
};

UTF8Pieces piecesOf(BytesView data) {
    UTF8Pieces pieces;
    for (std::size_t i = 0; i < data.size();) {
        const std::size_t start = i;
        const bool isASCII = static_cast<unsigned char>(data[start]) < 0x80;
        const char32_t c = text::nextCodePoint(data, i);
        if (isASCII) continue;
        const bool isWritten = i - start == 3 && data.substr(start, 3) == "\xEF\xBF\xBD";
        if (c == 0xFFFD && !isWritten)
            ++pieces.faults;
        else
            ++pieces.characters;
    }
    return pieces;
}

/// Windows-1252 hardly ever looks like UTF-8, and a lost byte makes no other charset of a text.
bool isDamagedUTF8(BytesView data) {
    const UTF8Pieces pieces = piecesOf(data);
    return pieces.faults > 0 && pieces.characters >= pieces.faults;
}

/// Well-formed UTF-8 that is more than ASCII.
bool isSurelyUTF8(BytesView data) {
    return std::ranges::any_of(data, [](char c) { return static_cast<unsigned char>(c) >= 0x80; }) &&
           text::isValidUTF8(data);
}

/// Most characters of most texts are Latin, whose high byte is zero.
bool isLittleEndian(BytesView data) {
    if (data.starts_with("\xFF\xFE") || data.starts_with("\xFE\xFF")) return false; // it says so itself
    std::size_t even = 0, odd = 0;
    for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
        even += data[i] == '\0' ? 1U : 0U;
        odd += data[i + 1] == '\0' ? 1U : 0U;
    }
    return odd > even;
}

std::optional<Charset> charsetOf(BytesView data, std::string_view label) {
    if (isLabelled(label, {"windows-1252", "cp1252", "iso-8859-1", "latin1"}) && isSurelyUTF8(data))
        return Charset::utf8();
    if (isLabelled(label, {"utf-16", "utf16", "ucs-2"}) && isLittleEndian(data)) return Charset::named("utf-16le");
    return charsetEncoding(label);
}

}

std::string decodeText(BytesView data, std::string_view charset) {
    if (const auto encoding = charsetOf(data, charset)) {
        if (auto text = encoding->decoded(data)) return *std::move(text);
        if (encoding == Charset::utf8() && isDamagedUTF8(data)) return text::repairedUTF8(data);
    }
    if (auto text = Charset::utf8().decoded(data)) return *std::move(text);
    if (auto text = Charset::windows1252().decoded(data)) return *std::move(text);
    return text::repairedUTF8(data);
}

}
