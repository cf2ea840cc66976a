#include "formats/WhiteSpace.h"

#include "base/Text.h"

#include <algorithm>
#include <array>

namespace velmo {

std::size_t whiteSpaceLength(std::string_view utf8, std::size_t position) {
    const char c = utf8[position];
    if (text::isSpace(c)) return 1;
    // All other white space begins with one of these bytes.
    if (c != '\xC2' && c != '\xE1' && c != '\xE2' && c != '\xE3') return 0;
    std::size_t next = position;
    return text::isUnicodeSpace(text::nextCodePoint(utf8, next)) ? next - position : 0;
}

namespace {

/// Bytes at which white space may begin; all others are copied in runs.
constexpr auto maySpace = [] {
    std::array<bool, 256> table{};
    for (const std::size_t c : {0x09U, 0x0AU, 0x0BU, 0x0CU, 0x0DU, 0x20U, 0xC2U, 0xE1U, 0xE2U, 0xE3U}) table[c] = true;
    return table;
}();

}

std::string collapsedWhiteSpace(std::string_view utf8, std::size_t enough) {
    std::string out;
    out.reserve(std::min(utf8.size(), enough));
    bool gap = false;
    for (std::size_t i = 0; i < utf8.size() && out.size() < enough;) {
        if (const auto length = whiteSpaceLength(utf8, i)) {
            gap = true;
            i += length;
            continue;
        }
        // Words with one space between them are a run as well.
        const std::size_t start = i++;
        while (i < utf8.size()) {
            if (maySpace[static_cast<unsigned char>(utf8[i])]) {
                const bool isSingle =
                    utf8[i] == ' ' && i + 1 < utf8.size() && !maySpace[static_cast<unsigned char>(utf8[i + 1])];
                if (!isSingle || out.size() + (i - start) >= enough) break;
            }
            ++i;
        }
        if (gap && !out.empty()) out += ' ';
        gap = false;
        out += utf8.substr(start, i - start);
    }
    return out;
}

}
