#include "records/MailboxRecord.h"

#include "base/Text.h"

namespace velmo {

namespace {

bool canBeSelected(const IMAPMailbox& mailbox) {
    for (const auto& attribute : mailbox.attributes) {
        if (text::equalsIgnoringCase(attribute, "\\Noselect") || text::equalsIgnoringCase(attribute, "\\NonExistent"))
            return false;
    }
    return true;
}

}

MailboxRole MailboxRecord::role() const {
    return mailboxRoleFrom(roleRaw).value_or(MailboxRole::other);
}

void MailboxRecord::applyListing(const IMAPMailbox& listed, std::int64_t messages, std::int64_t unseen) {
    name = mailboxDisplayName(listed.path, listed.delimiter, listed.role);
    delimiter = listed.delimiter;
    roleRaw = rawText(listed.role);
    isSelectable = canBeSelected(listed);
    totalCount = messages;
    unreadCount = unseen;
}

std::string canonicalMailboxPath(std::string path) {
    return text::equalsIgnoringCase(path, "INBOX") ? "INBOX" : std::move(path);
}

}
