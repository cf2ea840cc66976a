#pragma once

#include "formats/MIMEHeaders.h"

#include <optional>
#include <string>

namespace velmo {

/// How a list offers to leave it (RFC 2369 §3.2, RFC 8058).
struct ListUnsubscribe {
    std::optional<std::string> web;  ///< the first URL with scheme "https" or "http"
    std::optional<std::string> mail; ///< the first URL with scheme "mailto"
    bool oneClick = false;           ///< a POST to `web`, which is "https" then, is enough

    friend bool operator==(const ListUnsubscribe&, const ListUnsubscribe&) = default;
};

/// Both targets are absent when the headers name none.
ListUnsubscribe listUnsubscribe(const MIMEHeaders& headers);

}
