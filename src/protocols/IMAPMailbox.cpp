#include "protocols/IMAPMailbox.h"

#include "base/Text.h"

#include <algorithm>
#include <map>

namespace velmo {

namespace {

/// How far below the top a mailbox lies. Many servers keep all of a person's mailboxes below INBOX.
std::ptrdiff_t depthOf(const IMAPMailbox& mailbox) {
    if (!mailbox.delimiter || mailbox.delimiter->size() != 1) return 0;
    const char delimiter = mailbox.delimiter->front();
    const auto depth = std::ranges::count(mailbox.path, delimiter);
    const auto root = mailbox.path.substr(0, mailbox.path.find(delimiter));
    return depth > 0 && text::equalsIgnoringCase(root, "INBOX") ? depth - 1 : depth;
}

/// The server itself says what the mailbox is for.
bool isNamedByServer(const IMAPMailbox& mailbox) {
    return mailbox.role == MailboxRole::inbox || mailboxRoleOfAttributes(mailbox.attributes).has_value();
}

}

bool IMAPMailbox::isSelectable() const {
    return std::ranges::none_of(attributes, [](const std::string& attribute) {
        return text::equalsIgnoringCase(attribute, "\\Noselect") ||
               text::equalsIgnoringCase(attribute, "\\NonExistent");
    });
}

void assignRoles(std::span<IMAPMailbox> mailboxes) {
    constexpr std::ptrdiff_t namedByServer = -1;
    std::map<MailboxRole, std::ptrdiff_t> best;
    const auto rank = [](const IMAPMailbox& mailbox) {
        return isNamedByServer(mailbox) ? namedByServer : depthOf(mailbox);
    };
    for (auto& mailbox : mailboxes) {
        const bool canHaveOne = mailbox.isSelectable();
        mailbox.role = canHaveOne ? mailboxRole(mailbox.path, mailbox.attributes) : MailboxRole::other;
        const auto [held, isFirst] = best.try_emplace(mailbox.role, rank(mailbox));
        if (!isFirst) held->second = std::min(held->second, rank(mailbox));
    }
    for (auto& mailbox : mailboxes)
        if (rank(mailbox) > best[mailbox.role]) mailbox.role = MailboxRole::other;
}

}
