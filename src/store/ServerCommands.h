#pragma once

#include "base/Async.h"
#include "protocols/IMAPClient.h"
#include "store/MessageGroups.h"
#include "sync/SyncEngine.h"

#include <exception>
#include <memory>
#include <string>

namespace velmo {

/// How a change on a server ended.
struct CommandOutcome {
    std::exception_ptr failure; ///< absent: the server has done it
    /// The command had been sent when it failed: all of it, some or nothing may have happened.
    bool isUncertain = false;
    IMAPCopiedUIDs copied;          ///< of a move, where the server tells it
    std::uint32_t firstArrived = 0; ///< UIDNEXT of the target before a move, where the server tells only that; or 0

    /// Nothing was sent.
    static CommandOutcome cancelled();
};

/// The messages may have other numbers by now, so that nothing can be said about them.
class RenumberedMailbox final : public UserError {
  public:
    RenumberedMailbox();
};

/// Changes on a server, on the command session of an account. Each selects the mailbox first, and changes nothing when
/// its messages have been numbered anew (RFC 3501 §2.3.1.1). A session that turns out to be dead before the change is
/// sent is replaced once. They throw nothing; a cancellation is a failure that `isCancellation` tells.
///
/// They begin and end on the executor of the caller. At whatever moment a connection breaks, each message is still in
/// one of the two mailboxes at least; one that was marked as deleted and not yet expunged loses its mark again, as
/// soon as the server can be reached.
Async<CommandOutcome> moveOnServer(std::shared_ptr<SyncEngine> engine, MessageGroup group, std::string target);
Async<CommandOutcome> deleteOnServer(std::shared_ptr<SyncEngine> engine, MessageGroup group);

/// May be sent twice, which is the same as once.
Async<CommandOutcome> setFlagOnServer(std::shared_ptr<SyncEngine> engine, MessageGroup group,
                                      IMAPClient::FlagChange change, std::string flag);

}
