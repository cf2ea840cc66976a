#pragma once

#include "base/Bytes.h"
#include "formats/MIMEHeaders.h"

#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// A part of a message that is not shown as its text.
struct MIMEAttachment {
    std::string filename;                 ///< never empty; as the sender wrote it, so it may hold path separators
    std::string mimeType;                 ///< lower-case
    std::optional<std::string> contentID; ///< without the angle brackets
    bool isInline = false;                ///< has a content ID, and its disposition is not "attachment"
    Bytes data;                           ///< the decoded bytes; empty when the encoding was broken

    friend bool operator==(const MIMEAttachment&, const MIMEAttachment&) = default;
};

/// A message taken apart (RFC 5322, RFC 2045 to 2049): its header fields, its texts and its attachments.
///
/// Several texts of one kind are joined; of alternatives the first set that holds a kind gives it; texts and
/// attachments of embedded messages are appended to those of the message around them.
struct ParsedMessage {
    MIMEHeaders headers;
    std::optional<std::string> plainText;    ///< UTF-8
    std::optional<std::string> html;         ///< UTF-8
    std::vector<MIMEAttachment> attachments; ///< in the order of the message

    /// Takes any bytes and never fails: what is broken is read as well as possible. Time and memory are linear in the
    /// size of the data, however deep its parts are nested. Runs on the caller's thread.
    static ParsedMessage parse(BytesView data);
};

}
