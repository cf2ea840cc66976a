#pragma once

#include "base/Async.h"
#include "base/UUID.h"
#include "sync/SyncEngine.h"
#include "sync/SyncWriter.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// Where a pass stands.
struct PassProgress {
    std::string mailbox;      ///< path of the mailbox that is being synced
    std::size_t position = 0; ///< from 1
    std::size_t count = 0;    ///< mailboxes of the pass

    friend bool operator==(const PassProgress&, const PassProgress&) = default;
};

/// What a server refused in a mailbox, in a sentence.
struct PassRefusal {
    std::string path;
    std::string sentence;
};

/// What a pass brought.
struct PassResult {
    std::size_t mailboxes = 0;
    std::size_t newMessages = 0;
    std::size_t vanished = 0;
    std::vector<PassRefusal> refusals; ///< the mailboxes of which all, or something, is left out
};

/// What others do at the steps of a pass. All of it is optional, and is called on the executor of the caller.
struct PassHooks {
    PassHooks() {}

    /// The listing has been stored.
    std::function<void(const std::vector<MailboxEntry>&)> onListed;
    /// The place of a mailbox in the pass: lower goes first. `syncPriority` of its role when absent.
    std::function<int(const MailboxEntry&)> priority;
    std::function<void(const PassProgress&)> onProgress;
    /// Asked before a mailbox is synced; what it gives is let go when the mailbox is stored, or can't be. A mailbox
    /// without it is left out.
    std::function<std::shared_ptr<void>(const std::string& path)> claim;
    /// What a mailbox brought has been stored.
    std::function<void(AppliedDelta)> onStored;
};

/// One pass over every mailbox of an account: the listing first, then each mailbox that can be selected, the inbox
/// before all others. An all-mail mailbox is left out, since its messages stand in their own mailboxes.
///
/// Runs on the executor of the caller; the engine and the writer work on theirs. What the server refuses is noted for
/// the mailbox that it concerns, and the pass goes on; only where it refuses every mailbox is that thrown. Any other
/// failure ends the pass and is thrown; the mailboxes that were done stay done.
Async<PassResult> passOver(SyncEngine& engine, SyncWriter& writer, UUID accountID, LabelNewMail labelNewMail,
                           PassHooks hooks = {});

/// The place of a mailbox in a pass: lower goes first.
int syncPriority(MailboxRole role);

}
