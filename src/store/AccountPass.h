#pragma once

#include "base/Async.h"
#include "base/UUID.h"
#include "sync/SyncEngine.h"
#include "sync/SyncWriter.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace velmo {

/// Where a pass stands.
struct PassProgress {
    std::string mailbox;      ///< path of the mailbox that is being synced
    std::size_t position = 0; ///< from 1
    std::size_t count = 0;    ///< mailboxes of the pass
};

/// What a pass brought.
struct PassResult {
    std::size_t mailboxes = 0;
    std::size_t newMessages = 0;
    std::size_t vanished = 0;
};

/// One pass over every mailbox of an account: the listing first, then each mailbox that can be selected, the inbox
/// before all others. An all-mail mailbox is left out, since its messages stand in their own mailboxes.
///
/// Runs on the executor of the caller; the engine and the writer work on theirs. The first failure ends the pass and is
/// thrown; the mailboxes that were done stay done.
Async<PassResult> passOver(SyncEngine& engine, SyncWriter& writer, UUID accountID, LabelNewMail labelNewMail,
                           std::function<void(const PassProgress&)> onProgress);

/// The place of a mailbox in a pass: lower goes first.
int syncPriority(MailboxRole role);

}
