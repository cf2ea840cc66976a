#include "formats/OutgoingEntity.h"

#include "base/Text.h"
#include "base/UUID.h"
#include "formats/TransferEncoder.h"

#include <algorithm>
#include <fmt/format.h>

namespace velmo {

namespace {

constexpr std::string_view lineEnd = "\r\n";

std::string newBoundary() {
    return "velmo-" + text::lowered(text::replacedAll(UUID::random().text(), "-", ""));
}

std::size_t lengthOf(const OutgoingEntity::Text& content) {
    return content.text.size() + content.text.size() / 8;
}

std::size_t lengthOf(const OutgoingEntity::Data& content) {
    return lengthInBase64Lines(content.bytes.size());
}

std::size_t lengthOf(const OutgoingEntity::Verbatim& content) {
    return content.bytes.size() + content.bytes.size() / 32;
}

std::size_t lengthOf(const OutgoingEntity::Multipart& content) {
    std::size_t length = content.boundary.size() + 8;
    for (const auto& part : content.parts) {
        for (const auto& header : part.headers) length += header.size() + lineEnd.size();
        length += content.boundary.size() + 8 + part.estimatedLength();
    }
    return length;
}

void append(Bytes& out, const OutgoingEntity::Text& content) {
    appendQuotedPrintable(out, content.text);
}

void append(Bytes& out, const OutgoingEntity::Data& content) {
    appendBase64Lines(out, content.bytes);
}

void append(Bytes& out, const OutgoingEntity::Verbatim& content) {
    for (std::string_view rest = content.bytes; !rest.empty();) {
        const auto end = rest.find('\n');
        auto line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        if (line.ends_with('\r')) line.remove_suffix(1);
        out.append(line).append(lineEnd);
    }
}

/// RFC 2046 §5.1.1, without preamble and epilogue.
void append(Bytes& out, const OutgoingEntity::Multipart& content) {
    for (const auto& part : content.parts) {
        out.append("--").append(content.boundary).append(lineEnd);
        for (const auto& header : part.headers) out.append(header).append(lineEnd);
        out.append(lineEnd);
        part.appendBody(out);
        out.append(lineEnd);
    }
    out.append("--").append(content.boundary).append("--").append(lineEnd);
}

}

OutgoingEntity OutgoingEntity::ofText(std::string_view type, std::string_view text) {
    OutgoingEntity entity;
    entity.headers = {fmt::format("Content-Type: {}; charset=\"utf-8\"", type),
                      "Content-Transfer-Encoding: quoted-printable"};
    entity.content = Text{text};
    return entity;
}

OutgoingEntity OutgoingEntity::ofParts(std::string_view type, std::vector<OutgoingEntity> parts) {
    Multipart content{newBoundary(), std::move(parts)};
    OutgoingEntity entity;
    entity.headers = {fmt::format("Content-Type: {}; boundary=\"{}\"", type, content.boundary)};
    entity.content = std::move(content);
    return entity;
}

std::size_t OutgoingEntity::estimatedLength() const {
    return std::visit([](const auto& one) { return lengthOf(one); }, content);
}

void OutgoingEntity::appendBody(Bytes& out) const {
    std::visit([&out](const auto& one) { append(out, one); }, content);
}

}
