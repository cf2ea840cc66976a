#include "formats/Invisibles.h"

#include "base/Text.h"
#include "platform/Letters.h"

#include <algorithm>

namespace velmo {

namespace {

constexpr char32_t nonJoiner = 0x200C, joiner = 0x200D, blackFlag = 0x1F3F4;

bool isTag(char32_t c) {
    return c >= 0xE0020 && c <= 0xE007F;
}

/// Joiners mean something within scripts that are not Latin, and between the parts of an emoji.
bool canBeJoined(char32_t c) {
    return c >= 0x80 && !text::isUnicodeSpace(c) && !isInvisibleFormat(c);
}

/// True when an invisible character shapes the ones around it. `previous` was kept; `next` is 0 at the end.
bool isNeeded(char32_t c, char32_t previous, char32_t next) {
    if (c == joiner || c == nonJoiner) return canBeJoined(previous) && canBeJoined(next);
    return isTag(c) && (previous == blackFlag || isTag(previous));
}

}

std::string withoutInvisibles(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    char32_t previous = 0;
    for (std::size_t i = 0; i < utf8.size();) {
        const std::size_t start = i;
        const char32_t c = text::nextCodePoint(utf8, i);
        if (c >= 0x80 && isInvisibleFormat(c)) {
            std::size_t ahead = i;
            const char32_t next = i < utf8.size() ? text::nextCodePoint(utf8, ahead) : 0;
            if (!isNeeded(c, previous, next)) continue;
        }
        out += utf8.substr(start, i - start);
        previous = c;
    }
    return out;
}

}
