#include "formats/PartInfo.h"

#include "base/Text.h"
#include "formats/HeadReader.h"
#include "formats/HeaderWords.h"
#include "formats/StructuredValue.h"

namespace velmo {

namespace {

std::string filename(const StructuredValue& disposition, const StructuredValue& type) {
    auto name = disposition.parameter("filename");
    if (!name) name = type.parameter("name");
    return decodeHeaderWords(name.value_or(""));
}

/// A name for a part that has none.
std::string defaultFilename(std::string_view type) {
    const auto kind = type.substr(type.rfind('/') + 1);
    return "attachment." + std::string(kind.empty() ? "bin" : kind);
}

PartKind kindOf(const std::string& type, const StructuredValue& disposition, bool hasBoundary, bool hasFilename) {
    if (type.starts_with("multipart/") && hasBoundary)
        return type == "multipart/alternative" ? PartKind::alternative : PartKind::multipart;
    const bool detached = disposition.value == "attachment";
    if (type == "message/rfc822" && !detached) return PartKind::embedded;
    if (detached || (hasFilename && !type.starts_with("text/"))) return PartKind::attachment;
    if (type == "text/html") return PartKind::html;
    return type.empty() || type == "text" || type == "text/plain" ? PartKind::plainText : PartKind::attachment;
}

}

void ContentFields::add(std::string_view name, std::string_view value) {
    if (!text::startsWithIgnoringCase(name, "content-")) return;
    name.remove_prefix(8);
    const auto take = [&](std::string_view wanted, std::optional<std::string>& target) {
        if (!target && text::equalsIgnoringCase(name, wanted)) target = value;
    };
    take("type", type);
    take("disposition", disposition);
    take("transfer-encoding", transferEncoding);
    take("id", id);
}

ContentFields ContentFields::of(BytesView head) {
    ContentFields fields;
    HeadReader reader(head);
    while (const auto field = reader.next()) fields.add(field->name, field->value);
    return fields;
}

ContentFields ContentFields::of(const MIMEHeaders& headers) {
    ContentFields fields;
    for (const auto& [name, value] : headers.fields) fields.add(name, value);
    return fields;
}

PartInfo ContentFields::info() const {
    const auto contentType = StructuredValue::parse(type.value_or(""));
    const auto contentDisposition = StructuredValue::parse(disposition.value_or(""));
    const auto boundary = contentType.parameter("boundary");
    std::string name = filename(contentDisposition, contentType);
    PartInfo info;
    info.kind = kindOf(contentType.value, contentDisposition, boundary.has_value(), !name.empty());
    info.boundary = boundary.value_or("");
    info.encoding = velmo::transferEncoding(transferEncoding.value_or(""));
    info.charset = contentType.parameter("charset").value_or("");
    auto& attachment = info.attachment;
    attachment.filename = name.empty() ? defaultFilename(contentType.value) : std::move(name);
    attachment.mimeType = contentType.value.empty() ? "application/octet-stream" : contentType.value;
    const auto contentID = id ? text::trimmed(*id, "<> \t") : std::string_view{};
    if (!contentID.empty()) attachment.contentID = contentID;
    attachment.isInline = attachment.contentID && contentDisposition.value != "attachment";
    return info;
}

}
