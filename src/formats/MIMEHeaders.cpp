#include "formats/MIMEHeaders.h"

#include "base/Text.h"
#include "formats/HeadReader.h"

#include <algorithm>

namespace velmo {

MIMEHeaders MIMEHeaders::parse(BytesView head) {
    MIMEHeaders headers;
    HeadReader reader(head);
    while (const auto field = reader.next())
        headers.fields.push_back({std::string(field->name), std::string(field->value)});
    return headers;
}

std::optional<std::string_view> MIMEHeaders::value(std::string_view name) const {
    const auto found = std::ranges::find_if(
        fields, [&](const MIMEField& field) { return text::equalsIgnoringCase(field.name, name); });
    if (found == fields.end()) return std::nullopt;
    return found->value;
}

}
