#include "store/MailStore.h"

#include "base/UserError.h"
#include "platform/Log.h"
#include "store/Housekeeping.h"
#include "store/SyncLoop.h"

#include <algorithm>
#include <utility>

namespace velmo {

MailStore::MailStore(MailStoreParts parts)
    : container_(std::move(parts.container)),
      context_(container_->makeContext()),
      writer_(container_, parts.files, parts.clock, parts.executors.background),
      bodyIndex_(parts.bodyIndex),
      environment_{parts.executors, parts.clock, parts.settings, parts.accounts,        *context_,
                   writer_,         parts.files, bodyIndex_,     parts.isShowingSamples},
      directory_(environment_),
      engines_(environment_),
      downloads_(std::make_shared<BodyDownloads>(parts.executors.main)),
      bodies_(std::make_shared<BodyStore>(environment_, engines_, downloads_)),
      prefetch_(std::make_shared<BodyPrefetch>(environment_, engines_, downloads_)),
      lists_(std::make_shared<MessageLists>(environment_, status_, directory_)),
      selection_(environment_, *lists_),
      sync_(std::make_shared<AccountSync>(environment_, status_, directory_, engines_, syncHooks())),
      actions_(std::make_shared<MessageActions>(environment_, status_, directory_, engines_, actionHooks())) {
    environment_.accounts.onRemove = [this](MailAccount account) { return removeAccountData(std::move(account)); };
    selection_.syncMailbox = [this](const MailboxKey& key) {
        if (const auto account = environment_.account(key.accountID))
            inBackground([this, account = *account, path = key.path]() -> Async<void> {
                return sync_->syncMailboxQuietly(account, path);
            });
    };
}

MailStore::~MailStore() {
    environment_.accounts.onRemove = {};
}

void MailStore::add(std::unique_ptr<MailService> service) {
    services_.push_back(std::move(service));
}

// --- Between the parts -------------------------------------------------------------------------------------------

AccountSync::Hooks MailStore::syncHooks() {
    AccountSync::Hooks hooks;
    hooks.selectedMailbox = [this](const UUID& accountID) { return selectedMailbox(accountID); };
    hooks.checked = [this](const MailAccount& account, MailService::Check check) { checked(account, check); };
    hooks.mailArrived = [this](const MailAccount& account, const std::vector<SyncedMessage>& messages) {
        for (const auto& service : services_) service->mailArrived(account, messages);
        mailArrived_.emit(account, messages);
    };
    return hooks;
}

MessageActions::Hooks MailStore::actionHooks() {
    MessageActions::Hooks hooks;
    hooks.syncMailbox = [this](MailAccount account, std::string path) {
        return sync_->syncMailboxAfresh(std::move(account), std::move(path));
    };
    hooks.listMailboxes = [this](MailAccount account) { return sync_->listMailboxes(std::move(account)); };
    hooks.selectNext = [this](const std::set<std::int64_t>& leaving) { selection_.selectNext(leaving); };
    return hooks;
}

void MailStore::checked(const MailAccount& account, MailService::Check check) {
    for (const auto& service : services_) service->checked(account, check);
    if (isRunning_ && !isStopping_) prefetch_->start(account);
}

std::optional<std::string> MailStore::selectedMailbox(const UUID& accountID) const {
    if (*selection_.accountID != accountID) return std::nullopt;
    const auto found = selection_.mailboxes->find(accountID);
    return found == selection_.mailboxes->end() ? std::nullopt : std::optional(found->second);
}

/// Keeps a task until it has ended.
void MailStore::inBackground(std::move_only_function<Async<void>()> body) {
    std::erase_if(background_, [](const Task& task) { return task.isFinished(); });
    if (!isStopping_) background_.emplace_back(environment_.executors.main, std::move(body));
}

// --- Start and stop ----------------------------------------------------------------------------------------------

Async<void> MailStore::start() {
    if (environment_.isShowingSamples) co_return;
    co_await keepHouse();
    if (isStopping_) co_return;
    isRunning_ = true;
    for (const auto& service : services_) service->start();
    lists_->startIndexing();
    const auto present = accountsWithout({});
    std::vector<UUID> gone;
    for (const auto& [id, loop] : loops_)
        if (!present.contains(id)) gone.push_back(id);
    for (const auto& id : gone) co_await endLoop(id);
    startLoops();
    selection_.repair(present);
}

/// Once in the life of the process; what it does, it does once in the life of the settings.
Async<void> MailStore::keepHouse() {
    if (std::exchange(hasKeptHouse_, true)) co_return;
    try {
        co_await callOn(environment_.executors.background, [this] {
            const auto context = container_->makeContext();
            velmo::keepHouse(*context, environment_.settings);
        });
    } catch (const UserError& error) {
        // Nothing of it is needed to read mail; the next start tries again.
        log("Mail").error("Couldn't bring the mail store up to date: {}", pub(error.sentence()));
    }
}

void MailStore::startLoops() {
    for (const auto& account : environment_.accounts.accounts.get()) {
        if (loops_.contains(account.id)) continue;
        auto loop = [weak = std::weak_ptr(sync_), clock = environment_.clock, account]() -> Async<void> {
            return runSyncLoop(weak, clock, account);
        };
        loops_.emplace(account.id, Task(environment_.executors.main, std::move(loop)));
    }
}

Async<void> MailStore::endLoop(UUID accountID) {
    auto held = loops_.extract(accountID);
    if (!held) co_return;
    held.mapped().cancel();
    co_await held.mapped().finished();
}

std::set<UUID> MailStore::accountsWithout(std::optional<UUID> removed) const {
    std::set<UUID> present;
    for (const auto& account : environment_.accounts.accounts.get())
        if (account.id != removed) present.insert(account.id);
    return present;
}

void MailStore::refreshAll() {
    for (const auto& account : environment_.accounts.accounts.get())
        inBackground([this, account]() -> Async<void> { return sync_->syncAccount(account); });
}

void MailStore::refreshVisible() {
    const auto list = selection_.currentList();
    if (!list) return;
    std::vector<MailboxRecord> visible;
    if (const auto* mailbox = std::get_if<MailboxRecord>(&list->source)) visible.push_back(*mailbox);
    if (const auto* scope = std::get_if<UnifiedScope>(&list->source)) visible = scope->mailboxes;
    for (const auto& mailbox : visible)
        if (selection_.syncMailbox) selection_.syncMailbox(mailbox.key());
}

Async<void> MailStore::stop() {
    if (std::exchange(isStopping_, true)) co_return;
    actions_->commitPendingAction();
    std::vector<UUID> all;
    for (const auto& [id, loop] : loops_) all.push_back(id);
    for (const auto& id : all) co_await endLoop(id);
    co_await prefetch_->cancelAll();
    co_await lists_->stopIndexing();
    for (Task& task : background_) task.cancel();
    for (Task& task : background_) co_await task.finished();
    co_await actions_->finished();
    co_await engines_.disconnectAll();
}

// --- Accounts ----------------------------------------------------------------------------------------------------

Async<void> MailStore::removeAccountData(MailAccount account) {
    co_await endLoop(account.id);
    co_await prefetch_->cancel(account.id);
    engines_.remove(account.id);
    co_await writer_.deleteAccount(account.id);
    co_await callOn(environment_.executors.background, [&] { bodyIndex_.removeAccount(account.id); });
    status_.remove(account.id);
    directory_.remove(account.id);
    for (const auto& service : services_) service->accountRemoved(account.id);
    selection_.repair(accountsWithout(account.id));
}

}
