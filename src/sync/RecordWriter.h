#pragma once

#include "base/Clock.h"
#include "records/MessageFiles.h"
#include "records/ModelContext.h"
#include "sync/Keepsakes.h"
#include "sync/ListedMailbox.h"
#include "sync/LocalChanges.h"
#include "sync/MailboxDelta.h"
#include "sync/WriterTypes.h"

#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace velmo {

/// The work of the SyncWriter, as plain calls for one executor. SyncWriter.h tells what each operation does.
///
/// An operation is one transaction. Records are worked out before it begins, so that the write lock is held for the
/// writing only; body files are removed after the commit, so that a crash leaves a file too many, but never a record
/// that was given up without its body.
class RecordWriter {
  public:
    RecordWriter(std::unique_ptr<ModelContext> context, MessageFiles files, std::shared_ptr<Clock> clock);

    std::vector<MailboxEntry> mailboxEntries(const UUID& accountID);
    void upsertMailboxes(const UUID& accountID, const std::vector<ListedMailbox>& listed,
                         const LocalChanges::Reading* reading = nullptr);
    SyncState syncState(const MailboxKey& mailbox);
    AppliedDelta apply(MailboxDelta delta, const MailboxKey& mailbox, LabelNewMail labelNewMail,
                       const LocalChanges::Reading* reading = nullptr);
    void insertOlder(const std::vector<SyncedMessage>& messages, const MailboxKey& mailbox, std::int64_t uidValidity,
                     LabelNewMail labelNewMail);
    void insertMessages(const std::vector<SyncedMessage>& messages, const MailboxKey& mailbox, std::int64_t uidValidity,
                        LabelNewMail labelNewMail);
    void removeLeft(const LeftMessages& left);
    void write(const std::function<void(ModelContext&)>& work);
    std::size_t indexTexts(std::size_t limit) { return context_->texts.indexNext(limit); }
    void dropStaleIndex() { context_->texts.dropStaleIndex(); }
    void deleteAccount(const UUID& accountID);

  private:
    /// Inserted messages by UID, with their place among those of the delta that were new.
    using Inserted = std::unordered_map<std::uint32_t, std::size_t>;

    std::vector<MailboxKey> storeListing(const UUID& accountID, const std::vector<ListedMailbox>& listed,
                                         const LocalChanges::Reading* reading, Keepsakes& keepsakes);
    void removeHeadless(std::span<const SyncedMessage> messages, const MailboxKey& mailbox);
    Inserted storeMessages(std::span<const SyncedMessage> messages, std::vector<MessageRecord> made,
                           const MailboxKey& mailbox, Keepsakes& keepsakes);
    void applyKnown(const MailboxDelta& delta, const MailboxRecord& mailbox, Keepsakes& keepsakes);
    Keepsakes makeKeepsakes() { return {*context_, files_, clock_->now()}; }
    void refreshUnreadCount(MailboxRecord& record, const MailboxDelta& delta, const LocalChanges::Reading* reading);
    void removeBodies(const MailboxDelta& delta, const MailboxKey& mailbox, const MailboxRecord& before) const;
    static AppliedDelta newsOf(MailboxDelta delta, const MailboxRecord& before, const Inserted& inserted);

    std::unique_ptr<ModelContext> context_;
    MessageFiles files_;
    std::shared_ptr<Clock> clock_;
    /// Accounts that were removed in this run: what their last sync still brings must not bring them back.
    std::set<UUID> removedAccounts_;
};

}
