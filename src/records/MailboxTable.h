#pragma once

#include "records/MailboxRecord.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace velmo {

class StoreConnection;

/// The mailboxes of all accounts. Part of a ModelContext.
class MailboxTable {
  public:
    explicit MailboxTable(StoreConnection& connection) : connection_(connection) {}

    /// By path.
    std::vector<MailboxRecord> of(const UUID& accountID);
    std::optional<MailboxRecord> find(const MailboxKey& key);

    /// Inserts the record, or brings the one of the same account and path to these values. True when that wrote
    /// anything.
    bool store(const MailboxRecord& record);

    /// Adds to the unread count, which never falls below 0; nothing without the mailbox.
    void adjustUnreadCount(const MailboxKey& key, std::int64_t difference);

    /// Removes the record; its messages are removed by whoever removes it.
    void remove(const MailboxKey& key);
    void removeAll(const UUID& accountID);

  private:
    StoreConnection& connection_;
};

}
