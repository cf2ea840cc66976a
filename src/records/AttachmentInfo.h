#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace velmo {

/// What a list shows of an attachment before the message itself is here.
struct AttachmentInfo {
    std::string filename;
    std::string mimeType;  ///< "{type}/{subtype}"
    std::int64_t size = 0; ///< bytes, still in their transfer encoding
    std::string section;   ///< part number (RFC 3501 §6.4.5)
    std::optional<std::string> contentID;

    friend bool operator==(const AttachmentInfo&, const AttachmentInfo&) = default;
};

}
