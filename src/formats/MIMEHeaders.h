#pragma once

#include "base/Bytes.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// One header field (RFC 5322 §2.2). The name keeps the spelling of the message; the value is unfolded and trimmed,
/// but its encoded words are not decoded.
struct MIMEField {
    std::string name;
    std::string value;

    friend bool operator==(const MIMEField&, const MIMEField&) = default;
};

/// The header fields of a message or of a part, in order, duplicates kept.
struct MIMEHeaders {
    std::vector<MIMEField> fields;

    /// Reads the head of a message: everything before the empty line. Bytes that are no UTF-8 become U+FFFD; lines
    /// that are neither a field nor the continuation of one are dropped. Never fails.
    static MIMEHeaders parse(BytesView head);

    /// The value of the first field with this name, compared without regard to case. Valid as long as the headers.
    std::optional<std::string_view> value(std::string_view name) const;

    friend bool operator==(const MIMEHeaders&, const MIMEHeaders&) = default;
};

}
