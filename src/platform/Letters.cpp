#include "platform/Letters.h"

#include <unicode/uchar.h>

namespace velmo {

bool isAlphanumeric(char32_t codePoint) {
    return (U_GET_GC_MASK(static_cast<UChar32>(codePoint)) & (U_GC_L_MASK | U_GC_N_MASK | U_GC_M_MASK)) != 0;
}

bool isInvisibleFormat(char32_t codePoint) {
    constexpr char32_t graphemeJoiner = 0x34F;
    const auto c = static_cast<UChar32>(codePoint);
    if (codePoint == graphemeJoiner) return true;
    return u_charType(c) == U_FORMAT_CHAR && u_hasBinaryProperty(c, UCHAR_DEFAULT_IGNORABLE_CODE_POINT) != 0;
}

}
