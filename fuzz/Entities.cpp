#include "formats/Entities.h"
#include "base/Text.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace velmo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto text = decodeEntities(bytes);
    if (text.size() > size) std::abort();
    if (text::isValidUTF8(bytes) && !text::isValidUTF8(text)) std::abort();
    return 0;
}
