#include "store/AccountSync.h"

#include "base/Localisation.h"
#include "base/UserError.h"
#include "platform/Log.h"
#include "records/Labels.h"

#include <algorithm>
#include <utility>

namespace velmo {

AccountSync::AccountSync(StoreEnvironment& environment, StoreStatus& status, MailboxDirectory& directory,
                         AccountEngines& engines, Hooks hooks)
    : environment_(environment),
      status_(status),
      directory_(directory),
      engines_(engines),
      hooks_(std::move(hooks)),
      mailboxIsFree_(environment.executors.main),
      passHasEnded_(environment.executors.main) {}

// --- Passes ------------------------------------------------------------------------------------------------------

Async<void> AccountSync::syncAccount(MailAccount account) {
    if (environment_.isShowingSamples) {
        status_.setChecked(account.id, environment_.clock->now());
        co_return;
    }
    if (isSyncing(account.id) || !environment_.account(account.id)) co_return;
    status_.set(account.id, SyncStatus::syncing());
    const auto self = shared_from_this();
    std::exception_ptr failure;
    try {
        co_await pass(account);
    } catch (...) {
        failure = std::current_exception();
    }
    progress.update([&](auto& all) { all.erase(account.id); });
    passHasEnded_.raise();
    const bool wasCancelled = isCancellation(failure);
    // The account may have gone while its pass ran.
    if (!environment_.account(account.id)) {
        status_.remove(account.id);
    } else if (failure && !wasCancelled) {
        const std::string sentence = sentenceOf(failure);
        log("Mail").error("Sync failed for {}: {}", priv(account.email), pub(sentence));
        status_.set(account.id, SyncStatus::failed(sentence));
    } else {
        if (!wasCancelled) status_.setChecked(account.id, environment_.clock->now());
        status_.set(account.id, SyncStatus::idle());
        if (!wasCancelled && hooks_.checked) hooks_.checked(account, MailService::Check::completePass);
    }
    if (wasCancelled) std::rethrow_exception(failure);
}

bool AccountSync::isSyncing(const UUID& accountID) const {
    return status_.of(accountID).kind == SyncStatus::Kind::syncing;
}

Async<void> AccountSync::othersPassEnded(UUID accountID) {
    while (isSyncing(accountID)) {
        passHasEnded_.lower();
        co_await passHasEnded_.wait();
    }
}

Async<void> AccountSync::pass(MailAccount account) {
    const auto engine = engines_.engine(account);
    PassHooks hooks = hooksFor(account);
    const PassResult result =
        co_await passOver(*engine, environment_.writer, account.id, labelNewMail(), std::move(hooks));
    tellRefusals(account, result);
    lastResults_[account.id] = result;
}

/// What the server would not give stands until a pass brings it.
void AccountSync::tellRefusals(const MailAccount& account, const PassResult& result) {
    const std::string prefix = "mailbox." + account.id.text() + ".";
    std::set<std::string> keys;
    for (const auto& [path, sentence] : result.refusals) keys.insert(prefix + path);
    const auto standing = *environment_.troubles.all;
    for (const auto& trouble : standing)
        if (trouble.key.starts_with(prefix) && !keys.contains(trouble.key)) environment_.troubles.settle(trouble.key);
    for (const auto& [path, sentence] : result.refusals)
        environment_.troubles.add(prefix + path, account.id,
                                  tr("Not everything in the folder {} of {} could be fetched; it is tried again. {}",
                                     path, account.email, sentence));
}

PassHooks AccountSync::hooksFor(const MailAccount& account) {
    PassHooks hooks;
    hooks.onListed = [this, id = account.id](const auto& entries) { listed(id, entries); };
    hooks.priority = [this, id = account.id](const MailboxEntry& entry) { return priority(id, entry); };
    hooks.claim = [this, id = account.id](const std::string& path) { return claim(id, path); };
    hooks.onStored = [this, account](const AppliedDelta& applied) { announce(account, applied); };
    hooks.onProgress = [this, account](const PassProgress& step) {
        progress.update([&](auto& all) { all[account.id] = step; });
    };
    return hooks;
}

int AccountSync::priority(const UUID& accountID, const MailboxEntry& entry) const {
    if (entry.role == MailboxRole::inbox) return 0;
    const auto chosen = hooks_.chosenMailbox ? hooks_.chosenMailbox(accountID) : std::nullopt;
    return chosen == entry.path ? 1 : syncPriority(entry.role);
}

void AccountSync::listed(const UUID& accountID, const std::vector<MailboxEntry>& entries) {
    std::set<std::string> paths;
    for (const auto& entry : entries) paths.insert(entry.path);
    directory_.listingStored(accountID, std::move(paths));
}

Async<void> AccountSync::listMailboxes(MailAccount account) {
    const auto self = shared_from_this();
    const auto engine = engines_.engine(account);
    auto reading = environment_.writer.localChanges().beginReading();
    auto all = co_await engine->listMailboxes();
    co_await environment_.writer.upsertMailboxes(account.id, std::move(all), std::move(reading));
    const auto entries = co_await environment_.writer.mailboxEntries(account.id);
    listed(account.id, entries);
}

// --- Single mailboxes --------------------------------------------------------------------------------------------

std::string AccountSync::keyOf(const UUID& accountID, const std::string& path) {
    return accountID.text() + "/" + path;
}

/// Null while another sync of the mailbox runs.
std::shared_ptr<void> AccountSync::claim(const UUID& accountID, const std::string& path) {
    std::string key = keyOf(accountID, path);
    if (syncingMailboxes->contains(key)) return nullptr;
    syncingMailboxes.update([&](auto& all) { all.insert(key); });
    return {this, [weak = weak_from_this(), key = std::move(key)](AccountSync*) {
                const auto self = weak.lock();
                if (!self) return;
                self->syncingMailboxes.update([&](auto& all) { all.erase(key); });
                self->mailboxIsFree_.raise();
            }};
}

Async<void> AccountSync::syncMailbox(MailAccount account, std::string path) {
    if (environment_.isShowingSamples) co_return;
    const auto self = shared_from_this();
    const auto held = claim(account.id, path);
    if (!held) co_return;
    const auto engine = engines_.engine(account);
    auto reading = environment_.writer.localChanges().beginReading();
    SyncState state = co_await environment_.writer.syncState(account.id, path);
    if (!state.isWanted()) co_return;
    MailboxDelta delta = co_await engine->syncMailbox(path, std::move(state));
    const AppliedDelta applied =
        co_await environment_.writer.apply(std::move(delta), account.id, path, labelNewMail(), std::move(reading));
    announce(account, applied);
}

Async<void> AccountSync::syncMailboxQuietly(MailAccount account, std::string path) {
    std::exception_ptr failure;
    try {
        co_await syncMailbox(std::move(account), std::move(path));
    } catch (...) {
        failure = std::current_exception();
    }
    if (!failure) co_return;
    if (isCancellation(failure)) std::rethrow_exception(failure);
    log("Mail").error("Mailbox sync failed: {}", pub(sentenceOf(failure)));
}

Async<void> AccountSync::syncMailboxAfresh(MailAccount account, std::string path) {
    const auto self = shared_from_this();
    const auto key = keyOf(account.id, path);
    while (syncingMailboxes->contains(key)) {
        mailboxIsFree_.lower();
        co_await mailboxIsFree_.wait();
    }
    co_await syncMailboxQuietly(std::move(account), std::move(path));
}

Async<void> AccountSync::syncInbox(MailAccount account, std::string path) {
    const auto self = shared_from_this();
    co_await syncMailboxQuietly(account, path);
    const auto selected = hooks_.selectedMailbox ? hooks_.selectedMailbox(account.id) : std::nullopt;
    if (selected && *selected != path) co_await syncMailboxQuietly(account, *selected);
    if (!environment_.account(account.id)) co_return;
    status_.setChecked(account.id, environment_.clock->now());
    if (hooks_.checked) hooks_.checked(account, MailService::Check::inboxOnly);
}

/// One step is written while the next is fetched.
Async<std::size_t> AccountSync::fetchOlder(MailAccount account, std::string path, Backfill extent,
                                           std::function<void(std::size_t)> onStored) {
    constexpr std::size_t step = 100;
    const auto self = shared_from_this();
    const auto engine = engines_.engine(account);
    const SyncState held = co_await environment_.writer.syncState(account.id, path);
    auto older = co_await engine->olderUIDs(path, static_cast<std::uint32_t>(held.oldestSyncedUID));
    std::vector<SyncedMessage> fetched, waiting;
    std::size_t count = 0;
    const auto write = [&]() -> Async<void> {
        if (waiting.empty()) co_return;
        count += waiting.size();
        auto messages = std::exchange(waiting, {});
        co_await environment_.writer.insertOlder(std::move(messages), account.id, path, held.uidValidity,
                                                 labelNewMail());
        if (onStored) onStored(count);
    };
    const auto fetch = [&]() -> Async<void> {
        const auto first = older.end() - static_cast<std::ptrdiff_t>(std::min(step, older.size()));
        std::vector<std::uint32_t> slice(first, older.end());
        older.erase(first, older.end());
        fetched = co_await engine->fetchMessages(path, held.uidValidity, std::move(slice));
    };
    for (bool goesOn = !older.empty(); goesOn;) {
        co_await both(write, fetch);
        waiting = std::exchange(fetched, {});
        goesOn = extent == Backfill::everything && !older.empty();
    }
    co_await write();
    co_return count;
}

void AccountSync::announce(const MailAccount& account, const AppliedDelta& applied) {
    if (applied.countsAsNews && !applied.unseen.empty() && hooks_.mailArrived)
        hooks_.mailArrived(account, applied.unseen);
}

LabelNewMail AccountSync::labelNewMail() const {
    return labelsNewMailAutomatically(environment_.settings) ? LabelNewMail::yes : LabelNewMail::no;
}

}
