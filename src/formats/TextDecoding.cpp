#include "formats/TextDecoding.h"

#include "base/Text.h"

namespace velmo {

std::optional<Charset> charsetEncoding(std::string_view label) {
    label = text::trimmed(label, " \t\r\n\"");
    if (label.empty()) return std::nullopt;
    if (text::equalsIgnoringCase(label, "utf8")) return Charset::utf8();
    for (const std::string_view nothing : {"x-unknown", "unknown-8bit", "8bit"})
        if (text::equalsIgnoringCase(label, nothing)) return std::nullopt;
    return Charset::named(label);
}

std::string decodeText(BytesView data, std::string_view charset) {
    if (const auto encoding = charsetEncoding(charset))
        if (auto text = encoding->decoded(data)) return *std::move(text);
    if (auto text = Charset::utf8().decoded(data)) return *std::move(text);
    if (auto text = Charset::windows1252().decoded(data)) return *std::move(text);
    return text::repairedUTF8(data);
}

}
