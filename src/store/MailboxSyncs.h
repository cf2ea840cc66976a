#pragma once

#include "records/MailboxRecord.h"
#include "store/CommandLanes.h"
#include "store/StoreEnvironment.h"

#include <functional>
#include <memory>
#include <set>
#include <string>

namespace velmo {

/// Mailboxes that are to be brought up to date after something was done to their messages, beside whatever else goes
/// on. Lives on the main executor; made by `std::make_shared`.
class MailboxSyncs : public std::enable_shared_from_this<MailboxSyncs> {
  public:
    /// Brings a mailbox to what the server has at the call or later; deals with its own failures.
    using Sync = std::function<Async<void>(MailAccount, std::string path)>;

    /// `environment` outlives this; without `sync` nothing is done.
    MailboxSyncs(StoreEnvironment& environment, Sync sync)
        : environment_(environment), sync_(std::move(sync)), lanes_(environment.executors.main) {}

    /// One sync that has not begun is enough for all who ask for it.
    void add(const MailboxKey& mailbox);

    bool isIdle() const { return lanes_.isIdle(); }
    Async<void> finished() { return lanes_.finished(); }

  private:
    static Async<void> run(std::weak_ptr<MailboxSyncs> weak, MailboxKey mailbox);

    StoreEnvironment& environment_;
    Sync sync_;
    std::set<MailboxKey> waiting_;
    CommandLanes lanes_;
};

}
