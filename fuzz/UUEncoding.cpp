// Files in a text: whatever is taken out, the rest and they together are no longer than the text.

#include "formats/UUEncoding.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const velmo::BytesView text(reinterpret_cast<const char*>(data), size);
    const auto taken = velmo::takeUUEncodedFiles(text);
    std::size_t total = taken.rest.size();
    for (const auto& file : taken.files) total += file.data.size() + file.name.size();
    if (total > size) std::abort();
    return 0;
}
