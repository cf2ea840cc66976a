#include "sync/RecordWriter.h"

#include "base/Text.h"
#include "sync/MessageRecordMaker.h"

#include <algorithm>
#include <limits>
#include <map>
#include <unordered_map>
#include <unordered_set>

namespace velmo {

namespace {

/// Messages that are asked for again with one sync.
constexpr std::size_t headlessAtOnce = 20;

MailboxKey canonical(const MailboxKey& mailbox) {
    return {mailbox.accountID, canonicalMailboxPath(mailbox.path)};
}

bool isSeen(const SyncedMessage& message) {
    return std::ranges::any_of(message.flags, [](const auto& f) { return text::equalsIgnoringCase(f, "\\Seen"); });
}

std::vector<std::uint32_t> uidsOf(std::span<const SyncedMessage> messages) {
    std::vector<std::uint32_t> uids;
    uids.reserve(messages.size());
    for (const auto& message : messages) uids.push_back(message.uid);
    return uids;
}

std::int64_t lowestUID(std::span<const SyncedMessage> messages) {
    return messages.empty() ? 0 : std::ranges::min_element(messages, {}, &SyncedMessage::uid)->uid;
}

std::vector<MessageRecord> makeRecords(std::span<const SyncedMessage> messages, const MailboxKey& mailbox,
                                       std::int64_t uidValidity, LabelNewMail labelNewMail) {
    std::vector<MessageRecord> made;
    made.reserve(messages.size());
    for (const auto& message : messages) made.push_back(makeMessageRecord(message, mailbox, uidValidity, labelNewMail));
    return made;
}

void takeState(MailboxRecord& record, const IMAPSelectedState& state) {
    record.uidValidity = state.uidValidity;
    record.uidNext = state.uidNext;
    // A mod-sequence has 63 bits (RFC 7162 §3.1.1). What is larger is nonsense, and counts as unknown.
    const auto modSeq = state.highestModSeq.value_or(0);
    record.highestModSeq = std::in_range<std::int64_t>(modSeq) ? static_cast<std::int64_t>(modSeq) : 0;
    record.totalCount = state.exists;
}

/// Whether messages under this numbering may go into the mailbox.
bool takes(const std::optional<MailboxRecord>& record, std::int64_t uidValidity) {
    return record && (record->uidValidity == 0 || record->uidValidity == uidValidity);
}

}

RecordWriter::RecordWriter(std::unique_ptr<ModelContext> context, MessageFiles files, std::shared_ptr<Clock> clock)
    : context_(std::move(context)), files_(std::move(files)), clock_(std::move(clock)) {}

// --- Mailboxes -------------------------------------------------------------------------------------------------

std::vector<MailboxEntry> RecordWriter::mailboxEntries(const UUID& accountID) {
    std::vector<MailboxEntry> entries;
    for (auto& record : context_->mailboxes.of(accountID))
        entries.push_back({std::move(record.path), record.role(), record.isSelectable});
    return entries;
}

void RecordWriter::upsertMailboxes(const UUID& accountID, const std::vector<ListedMailbox>& listed,
                                   const LocalChanges::Reading* reading) {
    // No account is without a mailbox; a listing without any is a server in trouble, and no reason to drop all mail.
    if (listed.empty() || removedAccounts_.contains(accountID)) return;
    auto keepsakes = makeKeepsakes();
    const auto gone = context_->transaction([&] { return storeListing(accountID, listed, reading, keepsakes); });
    keepsakes.finish();
    for (const auto& mailbox : gone) files_.deleteMailbox(mailbox);
}

/// Gives the mailboxes that were removed.
std::vector<MailboxKey> RecordWriter::storeListing(const UUID& accountID, const std::vector<ListedMailbox>& listed,
                                                   const LocalChanges::Reading* reading, Keepsakes& keepsakes) {
    std::map<std::string, MailboxRecord> held;
    for (auto& record : context_->mailboxes.of(accountID)) held.emplace(record.path, record);
    std::set<std::string> present;
    for (const auto& [mailbox, messages, unseen] : listed) {
        const auto path = canonicalMailboxPath(mailbox.path);
        auto& record = held[path];
        record.accountID = accountID;
        record.path = path;
        const bool isOutdated = reading != nullptr && reading->precedesCount(record.key());
        const auto unread = unseen + context_->unsentFlags.unreadDifference(record.key());
        record.applyListing(mailbox, messages, isOutdated ? record.unreadCount : unread);
        present.insert(path);
    }
    std::vector<MailboxKey> gone;
    for (const auto& [path, record] : held) {
        if (present.contains(path)) {
            context_->mailboxes.store(record);
            continue;
        }
        gone.push_back(record.key());
        keepsakes.keepAll(record);
        context_->messages.removeAll(record.key());
        context_->mailboxes.remove(record.key());
    }
    return gone;
}

SyncState RecordWriter::syncState(const MailboxKey& named) {
    const auto mailbox = canonical(named);
    const auto record = context_->mailboxes.find(mailbox);
    if (!record) return {};
    SyncState state;
    state.uidValidity = record->uidValidity;
    state.uidNext = record->uidNext;
    state.highestModSeq = record->highestModSeq;
    state.oldestSyncedUID = record->oldestSyncedUID;
    state.knownUIDs = context_->messages.uids(mailbox);
    state.headless = context_->messages.headless(mailbox, headlessAtOnce);
    auto expected = context_->keepsakes.expectedIn(mailbox);
    state.arrived = std::move(expected.uids);
    state.arrivedFrom = expected.from;
    state.arrivedUIDValidity = expected.uidValidity;
    state.isPartial = record->role() == MailboxRole::all;
    return state;
}

void RecordWriter::deleteAccount(const UUID& accountID) {
    removedAccounts_.insert(accountID);
    // The files first: they go even when the disk has no room to note that the records go.
    files_.deleteAccount(accountID);
    context_->deleteAccount(accountID);
}

// --- Messages --------------------------------------------------------------------------------------------------

AppliedDelta RecordWriter::apply(MailboxDelta delta, const MailboxKey& named, LabelNewMail labelNewMail,
                                 const LocalChanges::Reading* reading) {
    const auto mailbox = canonical(named);
    auto made = makeRecords(delta.newMessages, mailbox, delta.state.uidValidity, labelNewMail);
    std::optional<MailboxRecord> before;
    Inserted inserted;
    auto keepsakes = makeKeepsakes();
    context_->transaction([&] {
        before = context_->mailboxes.find(mailbox);
        if (!before) return;
        const bool isUnsaid = !delta.isReset && context_->unsentFlags.correct(mailbox, delta.flagChanges);
        const bool isOutdated = (reading != nullptr && reading->correct(delta, mailbox)) || isUnsaid;
        if (delta.isReset) {
            keepsakes.keepAll(*before);
            context_->messages.removeAll(mailbox);
        } else {
            applyKnown(delta, *before, keepsakes);
        }
        inserted = storeMessages(delta.newMessages, std::move(made), mailbox, keepsakes);
        keepsakes.expire();
        auto record = *before;
        takeState(record, delta.state);
        // From there on the flags are asked for again.
        if (isOutdated) record.highestModSeq = before->highestModSeq;
        record.lastSynced = clock_->now();
        if (record.oldestSyncedUID == 0 || delta.isReset || delta.isFilling)
            record.oldestSyncedUID = lowestUID(delta.newMessages);
        refreshUnreadCount(record, delta, reading);
        context_->mailboxes.store(record);
    });
    if (!before) return {};
    keepsakes.finish();
    removeBodies(delta, mailbox, *before);
    return newsOf(std::move(delta), *before, inserted);
}

void RecordWriter::applyKnown(const MailboxDelta& delta, const MailboxRecord& record, Keepsakes& keepsakes) {
    const auto mailbox = record.key();
    if (delta.flagChanges.empty() && delta.vanished.empty()) return;
    const std::unordered_set<std::uint32_t> vanished(delta.vanished.begin(), delta.vanished.end());
    auto wanted = delta.vanished;
    for (const auto& [uid, flags] : delta.flagChanges) {
        if (!vanished.contains(uid)) wanted.push_back(uid);
    }
    std::vector<std::int64_t> gone;
    for (const auto& held : context_->messages.flags(mailbox, wanted)) {
        if (vanished.contains(held.uid)) {
            gone.push_back(held.id);
            continue;
        }
        const auto received = MessageFlags::from(delta.flagChanges.at(held.uid));
        if (received != held.flags) context_->messages.setFlags(mailbox, held.id, received);
    }
    keepsakes.keep(record, gone);
    context_->messages.remove(mailbox, gone);
}

/// What was held without a head makes room for what has one now.
void RecordWriter::removeHeadless(std::span<const SyncedMessage> messages, const MailboxKey& mailbox) {
    const auto headless = context_->messages.headless(mailbox, headlessAtOnce);
    if (headless.empty()) return;
    std::vector<std::uint32_t> better;
    for (const auto& message : messages)
        if (message.envelope && std::ranges::binary_search(headless, message.uid)) better.push_back(message.uid);
    std::vector<std::int64_t> gone;
    for (const auto& held : context_->messages.flags(mailbox, better)) gone.push_back(held.id);
    context_->messages.remove(mailbox, gone);
}

/// Inserts what is new, and brings the flags of what is held up to date. Gives the UIDs that were inserted.
RecordWriter::Inserted RecordWriter::storeMessages(std::span<const SyncedMessage> messages,
                                                   std::vector<MessageRecord> made, const MailboxKey& mailbox,
                                                   Keepsakes& keepsakes) {
    std::unordered_map<std::uint32_t, StoredFlags> held;
    removeHeadless(messages, mailbox);
    for (auto& flags : context_->messages.flags(mailbox, uidsOf(messages))) held.emplace(flags.uid, std::move(flags));
    Inserted inserted;
    std::vector<MessageRecord> fresh;
    fresh.reserve(made.size());
    for (std::size_t i = 0; i < messages.size(); ++i) {
        const auto uid = messages[i].uid;
        if (const auto known = held.find(uid); known != held.end()) {
            if (!messages[i].hasFlags) continue;
            auto received = made[i].flags();
            if (received == known->second.flags) continue;
            context_->messages.setFlags(mailbox, known->second.id, received);
            known->second.flags = std::move(received);
        } else if (const auto [place, isFirst] = inserted.try_emplace(uid, fresh.size()); isFirst) {
            fresh.push_back(std::move(made[i]));
        } else {
            // The server told of it twice: what it said last counts.
            fresh[place->second].setFlags(made[i].flags());
        }
    }
    keepsakes.give(fresh);
    context_->messages.insert(fresh);
    keepsakes.giveFlags(fresh);
    return inserted;
}

/// STATUS tells the unread messages of most mailboxes. For the inbox, mail that is here counts before the next STATUS.
void RecordWriter::refreshUnreadCount(MailboxRecord& record, const MailboxDelta& delta,
                                      const LocalChanges::Reading* reading) {
    if (record.role() != MailboxRole::inbox) return;
    auto unseen = context_->messages.unseenCount(record.key());
    if (reading != nullptr) {
        const auto leaving = context_->messages.flags(record.key(), reading->leaving(record.key()));
        unseen -= std::ranges::count_if(leaving, [](const auto& held) { return !held.flags.isSeen; });
    }
    record.unreadCount = delta.isReset ? unseen : std::max(unseen, record.unreadCount);
}

void RecordWriter::removeBodies(const MailboxDelta& delta, const MailboxKey& mailbox,
                                const MailboxRecord& before) const {
    if (delta.isReset) {
        files_.deleteBodies(mailbox, before.uidValidity);
        return;
    }
    for (const auto uid : delta.vanished) files_.deleteBody({mailbox.accountID, mailbox.path, before.uidValidity, uid});
}

void RecordWriter::insertOlder(const std::vector<SyncedMessage>& messages, const MailboxKey& named,
                               std::int64_t uidValidity, LabelNewMail labelNewMail) {
    if (messages.empty()) return;
    const auto mailbox = canonical(named);
    auto made = makeRecords(messages, mailbox, uidValidity, labelNewMail);
    auto keepsakes = makeKeepsakes();
    context_->transaction([&] {
        auto record = context_->mailboxes.find(mailbox);
        if (!takes(record, uidValidity)) return;
        storeMessages(messages, std::move(made), mailbox, keepsakes);
        const auto lowest = lowestUID(messages);
        if (record->oldestSyncedUID == 0 || lowest < record->oldestSyncedUID) record->oldestSyncedUID = lowest;
        context_->mailboxes.store(*record);
    });
    keepsakes.finish();
}

void RecordWriter::insertMessages(const std::vector<SyncedMessage>& messages, const MailboxKey& named,
                                  std::int64_t uidValidity, LabelNewMail labelNewMail) {
    if (messages.empty()) return;
    const auto mailbox = canonical(named);
    auto made = makeRecords(messages, mailbox, uidValidity, labelNewMail);
    auto keepsakes = makeKeepsakes();
    context_->transaction([&] {
        if (takes(context_->mailboxes.find(mailbox), uidValidity))
            storeMessages(messages, std::move(made), mailbox, keepsakes);
    });
    keepsakes.finish();
}

void RecordWriter::removeLeft(const LeftMessages& left) {
    auto keepsakes = makeKeepsakes();
    context_->transaction([&] {
        for (std::size_t i = 0; left.destination && i < left.ids.size(); ++i) {
            std::optional<KeepsakeTable::Target> target;
            if (const auto told = left.targetUIDs.find(left.uids[i]); told != left.targetUIDs.end())
                target = {*left.destination, left.targetUIDValidity, told->second, {}};
            else if (left.targetFrom != 0)
                target = {*left.destination, 0, {}, left.targetFrom};
            keepsakes.keep(left.ids[i], target);
        }
        context_->messages.remove(left.mailbox, left.ids);
    });
    keepsakes.finish();
    for (const auto uid : left.uids)
        files_.deleteBody({left.mailbox.accountID, left.mailbox.path, left.uidValidity, uid});
}

void RecordWriter::write(const std::function<void(ModelContext&)>& work) {
    context_->transaction([&] { work(*context_); });
}

AppliedDelta RecordWriter::newsOf(MailboxDelta delta, const MailboxRecord& before, const Inserted& inserted) {
    AppliedDelta applied;
    applied.countsAsNews = before.role() == MailboxRole::inbox && before.lastSynced && !delta.isReset;
    std::vector<SyncedMessage*> unseen;
    for (auto& message : delta.newMessages) {
        // What fills a mailbox anew may have been there for long.
        const bool isOld = delta.isFilling && message.uid < before.uidNext;
        if (inserted.contains(message.uid) && !isSeen(message) && !isOld) unseen.push_back(&message);
    }
    std::ranges::stable_sort(unseen, std::greater(), &SyncedMessage::date);
    applied.unseen.reserve(unseen.size());
    for (auto* message : unseen) applied.unseen.push_back(std::move(*message));
    return applied;
}

}
