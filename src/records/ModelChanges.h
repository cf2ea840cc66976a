#pragma once

#include "base/UUID.h"
#include "records/MailboxRecord.h"

#include <set>

namespace velmo {

/// What commits changed, for those who show it.
struct ModelChanges {
    /// Mailboxes whose messages came, went or changed.
    std::set<MailboxKey> mailboxes;
    /// Accounts with a mailbox that came, went, or has another name, role or count.
    std::set<UUID> mailboxLists;
    bool labels = false;

    bool isEmpty() const { return mailboxes.empty() && mailboxLists.empty() && !labels; }
    void add(ModelChanges other);
};

}
