#include "records/MailboxRecord.h"

#include "base/Text.h"

namespace velmo {

MailboxRole MailboxRecord::role() const {
    return mailboxRoleFrom(roleRaw).value_or(MailboxRole::other);
}

void MailboxRecord::applyListing(const IMAPMailbox& listed, std::int64_t messages, std::int64_t unseen) {
    name = mailboxDisplayName(listed.path, listed.delimiter, listed.role);
    delimiter = listed.delimiter;
    roleRaw = rawText(listed.role);
    isSelectable = listed.isSelectable();
    totalCount = messages;
    unreadCount = unseen;
}

std::string canonicalMailboxPath(std::string path) {
    return text::equalsIgnoringCase(path, "INBOX") ? "INBOX" : std::move(path);
}

}
