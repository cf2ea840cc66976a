#pragma once

#include "protocols/MailboxRole.h"

#include <optional>
#include <set>
#include <span>
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

    /// It holds messages, or may; a mere branch of the tree, or a name that others left behind, does not.
    bool isSelectable() const;

    friend bool operator==(const IMAPMailbox&, const IMAPMailbox&) = default;
};

/// Gives the mailboxes of an account their roles. What the server says of a mailbox comes first: a name counts only for
/// a role that no mailbox has by its attribute, and the one nearest to the top before those below it. What can't be
/// selected has none.
void assignRoles(std::span<IMAPMailbox> mailboxes);

}
