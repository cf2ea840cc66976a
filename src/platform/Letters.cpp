#include "platform/Letters.h"

#include <unicode/uchar.h>

namespace velmo {

bool isAlphanumeric(char32_t codePoint) {
    return (U_GET_GC_MASK(static_cast<UChar32>(codePoint)) & (U_GC_L_MASK | U_GC_N_MASK | U_GC_M_MASK)) != 0;
}

}
