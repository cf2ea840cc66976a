#include "formats/Preview.h"
#include "base/Text.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace velmo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const bool valid = text::isValidUTF8(text);
    for (const auto& preview : {cleanedPreview(text), snippet(text, {}), snippet({}, text)}) {
        if (preview.size() > size) std::abort();
        if (valid && !text::isValidUTF8(preview)) std::abort();
        if (preview.find_first_of("\t\r\n") != std::string::npos) std::abort();
    }
    return 0;
}
