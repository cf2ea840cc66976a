#pragma once

#include "formats/MIMEHeaders.h"
#include "formats/ParsedMessage.h"
#include "formats/TransferEncoding.h"

#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// What becomes of a part.
enum class PartKind { multipart, alternative, embedded, plainText, html, attachment };

/// What the head of a part says about its body.
struct PartInfo {
    PartKind kind = PartKind::plainText;
    std::string boundary; ///< of a multipart
    TransferEncoding encoding = TransferEncoding::identity;
    std::string charset;       ///< of a text; empty when it is not told
    MIMEAttachment attachment; ///< what it is called when it is one; without its data
};

/// The fields of a head that describe its part (RFC 2045 §3), the first of each name.
struct ContentFields {
    std::optional<std::string> type, disposition, transferEncoding, id;

    static ContentFields of(BytesView head);
    static ContentFields of(const MIMEHeaders& headers);

    PartInfo info() const;

  private:
    void add(std::string_view name, std::string_view value);
};

}
