#pragma once

#include "base/Bytes.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace velmo {

/// An entity of a message under construction (RFC 2045 §2.4): its header lines, and its content, which it only refers
/// to. The nesting of a message that this system builds is three at most.
struct OutgoingEntity {
    struct Text {
        std::string_view text; ///< goes out in quoted-printable
    };
    struct Data {
        BytesView bytes; ///< go out in base64
    };
    /// Goes out as it is, with CR LF between lines; RFC 2046 §5.2.1 allows nothing else for a message.
    struct Verbatim {
        BytesView bytes; ///< no line of more than 998 octets, no NUL and no CR that stands alone
    };
    struct Multipart {
        std::string boundary;
        std::vector<OutgoingEntity> parts;
    };

    std::vector<std::string> headers; ///< lines without their ends
    std::variant<Text, Data, Verbatim, Multipart> content;

    /// `type` is "text/plain" or "text/html".
    static OutgoingEntity ofText(std::string_view type, std::string_view text);

    /// `type` is what stands in Content-Type in front of the boundary, which is a new one.
    static OutgoingEntity ofParts(std::string_view type, std::vector<OutgoingEntity> parts);

    /// About the length of the body; never much less.
    std::size_t estimatedLength() const;

    void appendBody(Bytes& out) const;
};

}
