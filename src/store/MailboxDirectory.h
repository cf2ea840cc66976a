#pragma once

#include "accounts/MailAccount.h"
#include "base/Observed.h"
#include "store/StoreEnvironment.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velmo {

/// The mailboxes of the accounts, as lists ask for them many times a frame. Lives on the main executor.
class MailboxDirectory {
  public:
    explicit MailboxDirectory(StoreEnvironment& environment);
    ~MailboxDirectory();
    MailboxDirectory(const MailboxDirectory&) = delete;
    MailboxDirectory& operator=(const MailboxDirectory&) = delete;

    /// Sorted by the place of their role, then by path. Read again after a commit that touched mailboxes or their
    /// messages, and after two seconds at the latest.
    const std::vector<MailboxRecord>& mailboxes(const UUID& accountID);

    /// The first mailbox of that role.
    std::optional<MailboxRecord> mailbox(MailboxRole role, const UUID& accountID);

    /// The record of a path, as it is now.
    std::optional<MailboxRecord> find(const MailboxKey& key) { return environment_.context.mailboxes.find(key); }

    /// Raised whenever the list of mailboxes has changed.
    Observed<std::int64_t> version;

    /// A listing has been stored.
    void listingStored(const UUID& accountID, std::set<std::string> paths);

    /// The paths that were seen on each account.
    const std::map<UUID, std::set<std::string>>& known() const { return known_; }

    void remove(const UUID& accountID);

  private:
    struct Cached {
        std::int64_t version = 0;
        Instant fetched;
        std::vector<MailboxRecord> mailboxes;
    };

    StoreEnvironment& environment_;
    std::map<UUID, Cached> cache_;
    std::map<UUID, std::set<std::string>> known_;
    sigc::connection onCommit_;
};

}
