#include "formats/Entities.h"
#include "base/Text.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace velmo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto text = decodeEntities(bytes);
    // Some names stand for two characters.
    if (text.size() > 2 * size) std::abort();
    if (text::isValidUTF8(bytes) && !text::isValidUTF8(text)) std::abort();
    return 0;
}
