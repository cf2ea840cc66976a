#include "formats/WhiteSpace.h"

#include "base/Text.h"

namespace velmo {

std::size_t whiteSpaceLength(std::string_view utf8, std::size_t position) {
    const char c = utf8[position];
    if (text::isSpace(c)) return 1;
    // All other white space begins with one of these bytes.
    if (c != '\xC2' && c != '\xE1' && c != '\xE2' && c != '\xE3') return 0;
    std::size_t next = position;
    return text::isUnicodeSpace(text::nextCodePoint(utf8, next)) ? next - position : 0;
}

std::string collapsedWhiteSpace(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    bool gap = false;
    for (std::size_t i = 0; i < utf8.size();) {
        if (const auto length = whiteSpaceLength(utf8, i)) {
            gap = true;
            i += length;
            continue;
        }
        if (gap && !out.empty()) out += ' ';
        gap = false;
        out += utf8[i++];
    }
    return out;
}

}
