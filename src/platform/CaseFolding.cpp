#include "platform/CaseFolding.h"

#include "base/Text.h"

#include <unicode/uchar.h>

namespace velmo {

std::string foldedCase(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size();) {
        const auto folded = u_foldCase(static_cast<UChar32>(text::nextCodePoint(utf8, i)), U_FOLD_CASE_DEFAULT);
        text::appendUTF8(out, static_cast<char32_t>(folded));
    }
    return out;
}

}
