#pragma once

#include "accounts/MailAccount.h"
#include "base/Async.h"
#include "store/AccountEngines.h"
#include "store/BodyBudget.h"
#include "store/BodyDownloads.h"
#include "store/BodyFetch.h"
#include "store/StoreEnvironment.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <vector>

namespace velmo {

/// The bodies that the prefetch of an account has still to bring: of messages younger than the cut-off date, in all
/// mailboxes but junk and trash. Throws sqlite::SQLiteError.
BodyTable::Missing bodiesToPrefetch(StoreEnvironment& environment, const UUID& accountID);

/// The prefetch of one account. Lives on the main executor, where every operation runs; rows and files are read on the
/// background executor.
class AccountPrefetch {
  public:
    /// The references outlive the runs.
    AccountPrefetch(StoreEnvironment& environment, AccountEngines& engines, std::shared_ptr<BodyDownloads> downloads,
                    std::shared_ptr<BodyBudget> budget, std::int64_t largestMessage)
        : environment_(environment),
          engines_(engines),
          downloads_(std::move(downloads)),
          budget_(std::move(budget)),
          largestMessage_(largestMessage) {}

    /// Completes the index, then fetches bodies until none is missing or the disk budget is used up. One run at a time.
    /// Throws the failure that ended it.
    Async<void> run(MailAccount account);

    /// Ends the run before its next batch. A cancellation can find it where it may not be cut off, and would be lost.
    void stop() { isStopped_ = true; }

  private:
    struct Backfill;

    /// What the index is compared with.
    struct Compared {
        std::int64_t bodiesHeld = 0;
        std::int64_t indexVersion = 0;
        friend bool operator==(const Compared&, const Compared&) = default;
    };

    Async<void> checkStop();
    Async<void> fillIndex(UUID accountID);
    Async<Compared> compared(UUID accountID);
    Async<void> indexHeld(Backfill& backfill);
    void indexStep(Backfill& backfill, std::span<const BodyRow> rows);
    Async<void> forgetMissing(Backfill& backfill);
    Async<void> fetchMissing(UUID accountID, BodyFetch& fetch);
    void tellRefusal(const MailAccount& account, const std::optional<std::string>& refusal);
    bool isHopeless(std::int64_t id) const;
    Async<std::vector<BodyRow>> nextBatch(UUID accountID, std::set<std::int64_t>& skipped);

    StoreEnvironment& environment_;
    AccountEngines& engines_;
    std::shared_ptr<BodyDownloads> downloads_;
    std::shared_ptr<BodyBudget> budget_;
    std::int64_t largestMessage_;
    BodyFetch::Suspects suspects_;
    std::set<std::int64_t> textless_;  ///< messages whose body has nothing to index
    std::optional<Compared> complete_; ///< as the last run left it; nothing is to be filled while it stays so
    bool isStopped_ = false;
};

}
