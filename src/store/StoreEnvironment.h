#pragma once

#include "accounts/AccountStore.h"
#include "base/Async.h"
#include "base/Clock.h"
#include "platform/Settings.h"
#include "records/BodyIndex.h"
#include "records/MessageFiles.h"
#include "records/ModelContext.h"
#include "store/Troubles.h"
#include "sync/SyncWriter.h"

#include <memory>
#include <vector>

namespace velmo {

/// What the parts of the mail store work with. Made once at the start of the program; everything in it outlives the
/// parts. The context is the one of the main executor, where the parts live.
struct StoreEnvironment {
    Executors executors;
    std::shared_ptr<Clock> clock;
    Settings& settings;
    AccountStore& accounts;
    ModelContext& context;
    SyncWriter& writer;
    MessageFiles files;
    BodyIndex& bodyIndex;
    Troubles& troubles;
    /// The store shows the built-in sample mail: nothing is synced, and no server is asked anything.
    bool isShowingSamples = false;

    /// The account of the list; absent when it is gone or going.
    std::optional<MailAccount> account(const UUID& accountID) const;

    /// Those of the list that stay.
    std::vector<MailAccount> allAccounts() const;
};

}
