#pragma once

#include "accounts/MailAccount.h"
#include "base/Async.h"
#include "store/AccountEngines.h"
#include "store/BodyBudget.h"
#include "store/BodyDownloads.h"
#include "store/StoreEnvironment.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velmo {

/// Brings bodies of one account in batches, over connections of its own that are kept from batch to batch. Used from
/// one coroutine at a time, on the main executor.
class BodyFetch {
  public:
    static constexpr std::size_t connections = 4;

    /// All of them outlive this.
    /// Messages that did not come because the connection broke, by their id: how often it did while they alone were
    /// fetched.
    using Suspects = std::map<std::int64_t, int>;

    /// All outlive this.
    BodyFetch(StoreEnvironment& environment, AccountEngines& engines, BodyDownloads& downloads, BodyBudget& budget,
              Suspects& suspects, MailAccount account)
        : environment_(environment),
          engines_(engines),
          downloads_(downloads),
          budget_(budget),
          suspects_(suspects),
          account_(std::move(account)) {}

    /// Fetches these bodies, indexes their texts and, at the end, makes all of them files and marks their records, in
    /// one commit. A body whose file is there already is not fetched again. Gives the messages that still have no body:
    /// the server no longer has them or refuses them, or they are being opened now. A message that the server can't
    /// give keeps none of those beside it back.
    ///
    /// Throws what ended the connection, or what the disk or the store refused, after what had come until then was
    /// marked; the same when it is cancelled.
    Async<std::set<std::int64_t>> fetch(std::vector<BodyRow> rows);

    /// What the server refused last, in its words; absent when it refused nothing.
    const std::optional<std::string>& refusal() const { return refusal_; }

    /// Closes the connections; fails never.
    Async<void> close();

  private:
    struct Slice;
    struct Kept;
    struct Batch;

    std::vector<Slice> slices(std::vector<BodyRow> rows) const;
    Async<void> adoptFiles(Batch& batch);
    Async<void> download(Batch& batch);
    Async<void> work(std::size_t connection, Batch& batch);
    Async<void> fetchSlice(std::size_t connection, Slice& slice, Batch& batch);
    void refused(Slice slice, const IMAPError& error, Batch& batch);
    void suspect(const Slice& slice);
    Async<void> keepFiles(Batch& batch);
    Async<void> record(const Batch& batch);

    StoreEnvironment& environment_;
    AccountEngines& engines_;
    BodyDownloads& downloads_;
    BodyBudget& budget_;
    Suspects& suspects_;
    MailAccount account_;
    std::map<std::string, int> refusalsInARow_; ///< by mailbox
    std::optional<std::string> refusal_;
    std::array<std::shared_ptr<SyncEngine>, connections> pool_;
};

}
