#include "formats/HeaderWords.h"
#include "base/Text.h"
#include "formats/MessageIDs.h"
#include "formats/StructuredValue.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace velmo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = text::repairedUTF8({reinterpret_cast<const char*>(data), size});
    if (!text::isValidUTF8(decodeHeaderWords(text))) std::abort();
    for (const auto& id : parseMessageIDs(text))
        if (id.size() < 3 || id.front() != '<' || id.back() != '>') std::abort();
    for (const auto& [name, value] : StructuredValue::parse(text).parameters)
        if (!text::isValidUTF8(value)) std::abort();
    return 0;
}
