#pragma once

#include "base/Async.h"
#include "base/Clock.h"
#include "base/UUID.h"
#include "records/MessageFiles.h"
#include "records/ModelContainer.h"
#include "sync/ListedMailbox.h"
#include "sync/LocalChanges.h"
#include "sync/MailboxDelta.h"
#include "sync/WriterTypes.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace velmo {

/// Stores what syncing brings, off the main executor: a serial object with a context of its own.
///
/// Each operation is one commit; when it throws (sqlite::SQLiteError, ModelStoreError) nothing was stored, and the same
/// delta can be applied again. Operations start in the order of the calls, run on a strand of the background executor,
/// and give values only. Paths that spell INBOX in any case name the one inbox.
class SyncWriter {
  public:
    using MailboxEntry = velmo::MailboxEntry;

    SyncWriter(const std::shared_ptr<ModelContainer>& container, MessageFiles files, std::shared_ptr<Clock> clock,
               const Executor& background);

    using Reading = std::shared_ptr<const LocalChanges::Reading>;

    /// What is changed beside the syncs has to be told here. A sync begins a reading before it asks the server, and
    /// hands it over with what came of it, so that it takes nothing back; without one it counts as older than nothing.
    LocalChanges& localChanges();

    /// By path.
    Async<std::vector<MailboxEntry>> mailboxEntries(UUID accountID);

    /// Creates and updates the records of a complete listing, and removes mailboxes that it no longer holds, with
    /// their messages and bodies. A listing without any mailbox counts as no listing.
    Async<void> upsertMailboxes(UUID accountID, std::vector<ListedMailbox> listed, Reading reading = {});

    /// What the next sync of the mailbox starts from; zeros for a mailbox that was never synced or isn't known.
    Async<SyncState> syncState(UUID accountID, std::string path);

    /// Stores a delta and the numbers that say how far it went. Nothing happens without a record of the mailbox.
    Async<AppliedDelta> apply(MailboxDelta delta, UUID accountID, std::string path, LabelNewMail labelNewMail,
                              Reading reading = {});

    /// Stores messages that the backfill brought under the numbering `uidValidity`, and moves `oldestSyncedUID` down.
    /// Nothing happens when the mailbox has another numbering by now, or is gone.
    Async<void> insertOlder(std::vector<SyncedMessage> messages, UUID accountID, std::string path,
                            std::int64_t uidValidity, LabelNewMail labelNewMail);

    /// Stores messages of a mailbox, and nothing else; under the same condition as `insertOlder`. Messages that are
    /// held already only get their flags.
    Async<void> insertMessages(std::vector<SyncedMessage> messages, UUID accountID, std::string path,
                               std::int64_t uidValidity, LabelNewMail labelNewMail);

    /// Removes the records and bodies of messages that have left. What only this machine knows of those that were moved
    /// follows them.
    Async<void> removeLeft(LeftMessages left);

    /// Runs `work` as one commit, behind whatever was asked before.
    Async<void> write(std::function<void(ModelContext&)> work);

    /// Takes up to this many stored messages into the full-text index over their texts. Gives how many were left, at
    /// most as many again; 0: the index is complete.
    Async<std::size_t> indexTexts(std::size_t limit);

    /// Makes that index anew, step by step from now on, when most of what it holds is gone.
    Async<void> dropStaleIndex();

    /// Removes all records and bodies of an account. Whatever still arrives for it later is dropped.
    Async<void> deleteAccount(UUID accountID);

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}
