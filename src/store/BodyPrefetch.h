#pragma once

#include "accounts/MailAccount.h"
#include "base/Async.h"
#include "store/AccountEngines.h"
#include "store/BodyBudget.h"
#include "store/BodyDownloads.h"
#include "store/StoreEnvironment.h"

#include <cstdint>
#include <map>
#include <memory>

namespace velmo {

/// In bytes.
struct BodyPrefetchLimits {
    BodyPrefetchLimits() {}
    std::int64_t largestMessage = 10'000'000;         ///< a larger one waits until it is opened
    std::int64_t mostStored = 5'000'000'000;          ///< above it, the oldest bodies go
    std::int64_t storedAfterEviction = 4'500'000'000; ///< until so much is left
};

/// Fills the body files and the body index before a person asks: the newest messages first, those in junk and trash
/// never. Lives on the main executor, one task an account. Dropping it cancels the tasks.
///
/// The text of a message is indexed, and its body made a file together with those of its batch, before its record is
/// marked; whatever a crash left undone is completed by the next start. Bodies of messages that are not younger than
/// the date of the setting "bodyCutoff.{accountID}" are left on the server.
class BodyPrefetch {
  public:
    /// `environment` and `engines` outlive this and the tasks that run; see `cancelAll`.
    BodyPrefetch(StoreEnvironment& environment, AccountEngines& engines, std::shared_ptr<BodyDownloads> downloads,
                 BodyPrefetchLimits limits = {});
    ~BodyPrefetch();
    BodyPrefetch(const BodyPrefetch&) = delete;
    BodyPrefetch& operator=(const BodyPrefetch&) = delete;

    /// Starts the prefetch of the account. One that runs looks once more before it ends. Does nothing while the samples
    /// are shown. A failure ends the prefetch with a line in the log; the next start tries again.
    void start(const MailAccount& account);

    /// Another has made a body of so many bytes a file.
    void noteStored(std::size_t bytes);

    bool isRunning(const UUID& accountID) const;

    /// Waits until the prefetch has nothing left to do, or at once when none runs. Throws the failure that ended it.
    Async<void> finished(UUID accountID);

    /// Ends the prefetch of an account that is being removed, and waits until nothing of it is under way any longer.
    /// The account's files are to be removed after this.
    Async<void> cancel(UUID accountID);

    /// Ends every prefetch and waits for that; for the end of the program.
    Async<void> cancelAll();

    /// Messages of the account whose body is in the files.
    std::int64_t bodiesHeld(const UUID& accountID) const;

    /// Messages whose body is still to come: those younger than the cut-off date in the mailboxes that are prefetched.
    /// One that is too large counts as well.
    std::int64_t bodiesMissing(const UUID& accountID) const;

  private:
    struct Run;

    static void stop(Run& run);
    static Async<void> end(std::shared_ptr<Run> run);

    StoreEnvironment& environment_;
    AccountEngines& engines_;
    std::shared_ptr<BodyDownloads> downloads_;
    BodyPrefetchLimits limits_;
    std::shared_ptr<BodyBudget> budget_;
    std::map<UUID, std::shared_ptr<Run>> runs_;
};

}
