#pragma once

#include "store/AccountEngines.h"
#include "store/CommandLanes.h"
#include "store/LeavingMessages.h"
#include "store/MailboxSyncs.h"
#include "store/MessageGroups.h"
#include "store/ServerCommands.h"
#include "store/StoreEnvironment.h"
#include "store/StoreStatus.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// Where messages go, as a path; absent: nowhere, they are deleted for good.
using Destination = std::optional<std::string>;

/// What one command to a server takes out of a mailbox.
struct Departure {
    MessageGroup group;
    Destination destination;
};

/// Messages that leave their mailboxes on the server. What has left is removed here as well, and the mailbox where it
/// went is brought up to date; what could not leave is shown again, with the server's words as an error banner. Lives
/// on the main executor; made by `std::make_shared`.
class Departures : public std::enable_shared_from_this<Departures> {
  public:
    /// All outlive this.
    Departures(StoreEnvironment& environment, StoreStatus& status, AccountEngines& engines, CommandLanes& lanes,
               MailboxSyncs& syncs, ActionWrites& writes)
        : environment_(environment),
          status_(status),
          engines_(engines),
          lanes_(lanes),
          syncs_(syncs),
          writes_(writes),
          leaving_(environment, status, writes) {}

    void hide(std::span<const MessageRecord> records) { leaving_.hide(records); }
    void putBack(const std::set<std::int64_t>& ids) { leaving_.putBack(ids); }

    /// Of messages that are hidden.
    void begin(const std::vector<Departure>& departures);

  private:
    static Async<void> run(std::weak_ptr<Departures> weak, Departure departure);
    Async<void> removeRecords(const Departure& departure, const CommandOutcome& outcome);
    void ended(const Departure& departure, const CommandOutcome& outcome);
    void failed(const Departure& departure, const CommandOutcome& outcome);

    StoreEnvironment& environment_;
    StoreStatus& status_;
    AccountEngines& engines_;
    CommandLanes& lanes_;
    MailboxSyncs& syncs_;
    ActionWrites& writes_;
    LeavingMessages leaving_;
};

}
