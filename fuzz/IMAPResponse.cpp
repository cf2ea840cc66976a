#include "protocols/IMAPResponse.h"

#include "protocols/IMAPFetchResult.h"

#include <cstdint>
#include <cstdlib>

namespace {

using namespace velmo;

void require(bool condition) {
    if (!condition) std::abort();
}

/// What a client does with the values of any response.
void readValues(IMAPValues values) {
    for (const IMAPValue value : values) {
        require(value == value);
        static_cast<void>(imapText(value));
        static_cast<void>(imapInteger(value));
        static_cast<void>(readEnvelope(value));
        const auto structure = readBodyStructure(value);
        if (structure) {
            static_cast<void>(hasCalendarPart(*structure));
            require(flattenedParts(*structure).size() <= structure->nodes().size());
        }
    }
}

}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const BytesView bytes(reinterpret_cast<const char*>(data), size);
    if (const auto announced = literalLength(bytes)) require(*announced >= 0);
    try {
        const IMAPResponse response = parseResponse(Bytes(bytes));
        readValues(response.values());
        if (const auto result = IMAPFetchResult::read(response.values())) require(response.isUntagged());
    } catch (const IMAPParseError&) {
        // Bytes that are no response.
    }
    return 0;
}
