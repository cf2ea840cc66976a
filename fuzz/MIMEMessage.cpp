#include "base/Text.h"
#include "formats/HeaderWords.h"
#include "formats/ListUnsubscribe.h"
#include "formats/ParsedMessage.h"
#include "formats/Preview.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace velmo;

namespace {

void require(bool held) {
    if (!held) std::abort();
}

bool isText(const std::optional<std::string>& text) {
    return !text || text::isValidUTF8(*text);
}

}

// Whatever arrives, the texts of a message are UTF-8, its attachments have names, and nothing grows out of proportion.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const BytesView bytes(reinterpret_cast<const char*>(data), size);
    const auto message = ParsedMessage::parse(bytes);
    require(isText(message.plainText) && isText(message.html));
    std::size_t decoded = 0;
    for (const auto* text : {&message.plainText, &message.html}) decoded += *text ? (*text)->size() : 0;
    for (const auto& attachment : message.attachments) {
        require(!attachment.filename.empty() && text::isValidUTF8(attachment.filename));
        decoded += attachment.data.size();
    }
    require(decoded <= 4 * size);
    for (const auto& field : message.headers.fields) {
        require(text::isValidUTF8(field.name) && text::isValidUTF8(field.value));
        require(text::isValidUTF8(decodeHeaderWords(field.value)));
    }
    require(isText(listUnsubscribe(message.headers).web));
    const auto preview = snippet(message.plainText, message.html);
    require(text::isValidUTF8(preview) && preview.size() <= 4 * snippetLength);
    return 0;
}
