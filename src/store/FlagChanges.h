#pragma once

#include "base/Async.h"
#include "protocols/IMAPClient.h"
#include "store/AccountEngines.h"
#include "store/ActionTroubles.h"
#include "store/ActionWrites.h"
#include "store/CommandLanes.h"
#include "store/MailboxSyncs.h"
#include "store/MessageGroups.h"
#include "store/ServerCommands.h"
#include "store/StoreEnvironment.h"
#include "store/StoreStatus.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <utility>
#include <vector>

namespace velmo {

/// Changes of flags: at once in the store, then on the server, and back when the server refuses. What a server that
/// doesn't answer has not heard of is kept with the change, also beyond the end of the process, until `resume` says it
/// again; `Troubles` tells of both. Lives on the main executor; made by `std::make_shared`.
///
/// A sync that read the flags before the server had a change may store them after the change was shown: LocalChanges
/// keeps it from taking the change back.
class FlagChanges : public std::enable_shared_from_this<FlagChanges> {
  public:
    using Flag = LocalChanges::Flag;
    using Change = IMAPClient::FlagChange;

    /// All outlive this. `syncs` is told of a mailbox that may not be as the store has it.
    FlagChanges(StoreEnvironment& environment, StoreStatus& status, AccountEngines& engines, CommandLanes& lanes,
                MailboxSyncs& syncs, ActionWrites& writes)
        : environment_(environment),
          status_(status),
          engines_(engines),
          lanes_(lanes),
          syncs_(syncs),
          writes_(writes) {}

    /// Changes those that differ; with none nothing is sent. Unread counts follow.
    void set(std::span<const MessageRecord> records, Flag flag, Change change);

    /// Says to the server of the account what it has not heard of.
    void resume(const UUID& accountID);

    /// True while a server is asked to change one of these messages.
    bool isUnderWay(const std::set<std::int64_t>& ids) const;

    /// True while no server has confirmed a change of one of these messages.
    bool isUnconfirmed(const std::set<std::int64_t>& ids) const;

  private:
    using Key = std::pair<std::int64_t, Flag>;
    /// A flag that is being changed, perhaps several times.
    struct OnTheWay {
        std::uint64_t last = 0; ///< the number of the last change
        bool onServer = false;
    };
    /// One command and what it is about.
    struct Sent {
        MessageGroup group;
        Flag flag = Flag::seen;
        Change change = Change::add;
        std::uint64_t number = 0;
        bool isRepeated = false; ///< nobody waits for it
    };

    struct Settled {
        std::vector<std::int64_t> ids;
        std::vector<std::uint32_t> uids;
    };

    /// Whether the server has heard of what is stored.
    enum class Heard { no, yes };

    std::vector<MessageRecord> differing(const std::vector<std::int64_t>& ids, Flag flag, bool value);
    void store(const std::vector<std::int64_t>& ids, Flag flag, bool value, Heard heard,
               const std::function<void()>& then);
    void sendAll(std::span<const MessageRecord> records, const Sent& sent);
    void send(Sent sent);
    static Async<void> run(std::weak_ptr<FlagChanges> weak, Sent sent);
    void ended(const Sent& sent, const CommandOutcome& outcome);
    void postpone(const Sent& sent, const CommandOutcome& outcome);
    void refused(const Sent& sent, const CommandOutcome& outcome);
    void confirmed(const Sent& sent);
    Settled settle(const Sent& sent, bool hasSucceeded, bool value);

    StoreEnvironment& environment_;
    StoreStatus& status_;
    AccountEngines& engines_;
    CommandLanes& lanes_;
    MailboxSyncs& syncs_;
    ActionWrites& writes_;
    std::map<Key, OnTheWay> onTheWay_;
    std::uint64_t number_ = 0;
};

}
