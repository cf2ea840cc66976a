#pragma once

#include "base/Async.h"
#include "store/AccountEngines.h"
#include "store/MailboxDirectory.h"
#include "store/StoreEnvironment.h"

#include <functional>
#include <memory>
#include <string>

namespace velmo {

/// Where messages of a kind belong in an account, also when the account has no such mailbox yet. Lives on the main
/// executor; outlives its operations.
class RoleMailboxes {
  public:
    using ListMailboxes = std::function<Async<void>(MailAccount)>;

    /// `listMailboxes` fetches the listing again and stores it. The others outlive this.
    RoleMailboxes(MailboxDirectory& directory, AccountEngines& engines, ListMailboxes listMailboxes)
        : directory_(directory), engines_(engines), listMailboxes_(std::move(listMailboxes)) {}

    /// The path of the mailbox of that role. One for drafts, sent mail or snoozed messages is made where there is none;
    /// throws IMAPError when the server refuses, and NoSuchMailbox when there is none of another role.
    Async<std::string> path(MailAccount account, MailboxRole role);

  private:
    MailboxDirectory& directory_;
    AccountEngines& engines_;
    ListMailboxes listMailboxes_;
};

/// The account has no mailbox for this.
class NoSuchMailbox final : public UserError {
  public:
    NoSuchMailbox();
};

/// The path under which a missing mailbox for drafts, sent mail or snoozed messages is made, by the mailboxes that the
/// account has: below INBOX where the server keeps its mailboxes there. Empty for any other role.
std::string pathForRole(MailProvider provider, const std::vector<MailboxRecord>& mailboxes, MailboxRole role);

}
