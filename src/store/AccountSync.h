#pragma once

#include "base/Flag.h"
#include "base/Observed.h"
#include "store/AccountEngines.h"
#include "store/AccountPass.h"
#include "store/MailService.h"
#include "store/MailboxDirectory.h"
#include "store/StoreEnvironment.h"
#include "store/StoreStatus.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velmo {

/// Brings mailboxes up to date: complete passes, single mailboxes, and the quick check of an inbox. At most one pass
/// runs per account, and one sync per mailbox. Lives on the main executor.
class AccountSync : public std::enable_shared_from_this<AccountSync> {
  public:
    /// What happens elsewhere; all of it may be empty.
    struct Hooks {
        /// The mailbox of the account that the person is looking at; absent while another account is in view.
        std::function<std::optional<std::string>(const UUID& accountID)> selectedMailbox;
        /// The one that was chosen last in this account, whatever is in view.
        std::function<std::optional<std::string>(const UUID& accountID)> chosenMailbox;
        std::function<void(const MailAccount&, MailService::Check)> checked;
        std::function<void(const MailAccount&, const std::vector<SyncedMessage>&)> mailArrived;
    };

    AccountSync(StoreEnvironment& environment, StoreStatus& status, MailboxDirectory& directory,
                AccountEngines& engines, Hooks hooks);

    /// One complete pass. The status of the account tells how it went; throws only when it is cancelled. Does nothing
    /// while a pass of the account runs, or once it is being removed.
    Async<void> syncAccount(MailAccount account);

    /// Waits for a pass that somebody else has begun.
    Async<void> othersPassEnded(UUID accountID);

    /// One mailbox. Does nothing while it is being synced. Throws what the engine and the writer throw.
    Async<void> syncMailbox(MailAccount account, std::string path);

    /// The same; a failure is only logged.
    Async<void> syncMailboxQuietly(MailAccount account, std::string path);

    /// The same after a change that the server knows of: a sync that runs may have asked before the change, so that
    /// this one follows it.
    Async<void> syncMailboxAfresh(MailAccount account, std::string path);

    /// The quick check after the server told of a change: the inbox, and the mailbox that the person is looking at.
    Async<void> syncInbox(MailAccount account, std::string path);

    /// Asks the server for its mailboxes again. Throws what the engine and the writer throw.
    Async<void> listMailboxes(MailAccount account);

    enum class Backfill { nextStep, everything };

    /// Fetches messages that are older than what is held of the mailbox: the next 100, or all of them. `onStored` is
    /// told after each step how many there were so far; gives how many in the end. What was stored before a failure
    /// stays. Throws what the engine and the writer throw.
    Async<std::size_t> fetchOlder(MailAccount account, std::string path, Backfill extent,
                                  std::function<void(std::size_t)> onStored = {});

    /// "{account}/{path}" of each mailbox that is being synced.
    Observed<std::set<std::string>> syncingMailboxes;

    /// Where the pass of each account stands; absent when none runs.
    Observed<std::map<UUID, PassProgress>> progress;
    /// What the last pass of an account brought; absent before its first one.
    const std::map<UUID, PassResult>& lastResults() const { return lastResults_; }

    /// The account is gone.
    void forget(const UUID& accountID) { lastResults_.erase(accountID); }

    StoreEnvironment& environment() { return environment_; }
    StoreStatus& status() { return status_; }
    MailboxDirectory& directory() { return directory_; }
    AccountEngines& engines() { return engines_; }

  private:
    static std::string keyOf(const UUID& accountID, const std::string& path);
    std::shared_ptr<void> claim(const UUID& accountID, const std::string& path);
    bool isSyncing(const UUID& accountID) const;
    Async<void> pass(MailAccount account);
    void tellRefusals(const MailAccount& account, const PassResult& result);
    PassHooks hooksFor(const MailAccount& account);
    void listed(const UUID& accountID, const std::vector<MailboxEntry>& entries);
    void announce(const MailAccount& account, const AppliedDelta& applied);
    LabelNewMail labelNewMail() const;
    int priority(const UUID& accountID, const MailboxEntry& entry) const;

    StoreEnvironment& environment_;
    StoreStatus& status_;
    MailboxDirectory& directory_;
    AccountEngines& engines_;
    Hooks hooks_;
    Flag mailboxIsFree_; ///< raised when the sync of a mailbox ends
    Flag passHasEnded_;  ///< raised when a pass ends
    std::map<UUID, PassResult> lastResults_;
};

}
