#pragma once

#include "base/Async.h"
#include "base/Bytes.h"
#include "store/AccountEngines.h"
#include "store/AccountSync.h"
#include "store/MailboxDirectory.h"
#include "store/MessageActions.h"

#include <memory>
#include <string>

namespace velmo {

/// The person's own messages on the server: drafts, and copies of what was sent. Lives on the main executor; what it is
/// made of outlives its operations.
///
/// Each throws what the server refuses (IMAPError, MailConnectionError); the mailbox that it changed is brought up to
/// date afterwards, which fails silently.
class MailFiling {
  public:
    MailFiling(MailboxDirectory& directory, AccountEngines& engines, std::shared_ptr<MessageActions> actions,
               std::shared_ptr<AccountSync> sync)
        : directory_(directory), engines_(engines), actions_(std::move(actions)), sync_(std::move(sync)) {}

    /// Stores a draft in the place of the one with its Message-ID, which goes once the new one is in.
    Async<void> saveDraft(MailAccount account, std::string messageID, Bytes message);

    /// Deletes the draft with this Message-ID, where there is one.
    Async<void> deleteDraft(MailAccount account, std::string messageID);

    /// Deletes this draft by its UID, and all copies of it in the same mailbox that have its Message-ID. One without a
    /// mailbox, as it is after it was saved, has its Message-ID only.
    Async<void> deleteDraft(MailAccount account, MessageRecord draft);

    /// Marks a message without a Message-ID as answered.
    Async<void> markAnswered(MailAccount account, MessageRecord message);

    /// Marks the message with this Message-ID as answered, in whatever mailbox of the account it is by now: it is
    /// looked for where the store has it, and then on the server. False when it is nowhere.
    Async<bool> markAnswered(MailAccount account, std::string messageID);

    /// Puts a copy of what was sent among the sent mail; one that is there already stays the only one.
    Async<void> fileSent(MailAccount account, std::string messageID, Bytes message);

  private:
    std::vector<std::string> placesOf(const MailAccount& account, const std::string& messageID);
    Async<void> replace(MailAccount account, MailboxRole role, std::string messageID, std::vector<std::string> flags,
                        Bytes message);

    MailboxDirectory& directory_;
    AccountEngines& engines_;
    std::shared_ptr<MessageActions> actions_;
    std::shared_ptr<AccountSync> sync_;
};

}
