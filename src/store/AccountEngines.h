#pragma once

#include "accounts/MailAccount.h"
#include "base/Task.h"
#include "store/StoreEnvironment.h"
#include "sync/SyncEngine.h"

#include <map>
#include <memory>
#include <vector>

namespace velmo {

/// The protocol owner of each account. Lives on the main executor.
class AccountEngines {
  public:
    /// `environment` outlives this.
    explicit AccountEngines(StoreEnvironment& environment) : environment_(environment) {}

    /// The engine of an account, made at its first use and never replaced while the account exists.
    std::shared_ptr<SyncEngine> engine(const MailAccount& account);

    /// The same by its ID; null when the account is gone.
    std::shared_ptr<SyncEngine> engineOf(const UUID& accountID);

    /// A further engine of the account, with sessions of its own, for work beside the others. Its owner disconnects it.
    std::shared_ptr<SyncEngine> makeEngine(const MailAccount& account);

    /// Lets go of the account's engine, which closes its connections in the background.
    void remove(const UUID& accountID);

    /// Logs out everywhere; for the end of the program.
    Async<void> disconnectAll();

  private:
    StoreEnvironment& environment_;
    std::map<UUID, std::shared_ptr<SyncEngine>> engines_;
    std::vector<Task> closing_; ///< engines of removed accounts
};

}
