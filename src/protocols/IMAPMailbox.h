#pragma once

#include "protocols/MailboxRole.h"

#include <optional>
#include <set>
#include <string>

namespace velmo {

/// One answer to LIST (RFC 3501 §7.2.2).
struct IMAPMailbox {
    /// As the server spells it.
    std::string path;
    std::optional<std::string> delimiter;
    /// As sent.
    std::set<std::string> attributes;
    MailboxRole role = MailboxRole::other;

    friend bool operator==(const IMAPMailbox&, const IMAPMailbox&) = default;
};

}
