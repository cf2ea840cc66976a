#include "store/MailStore.h"

#include "base/UserError.h"
#include "platform/Log.h"
#include "store/Housekeeping.h"
#include "store/SampleMail.h"
#include "store/SyncLoop.h"

#include <algorithm>
#include <utility>

namespace velmo {

namespace {

/// Of a message line that names no other.
constexpr std::chrono::seconds usualLifetime{30};

}

MailStore::MailStore(MailStoreParts parts)
    : container_(std::move(parts.container)),
      context_(container_->makeContext()),
      writer_(container_, parts.files, parts.clock, parts.executors.background),
      bodyIndex_(parts.bodyIndex),
      troubles_(parts.settings, parts.clock),
      environment_{parts.executors, parts.clock, parts.settings, parts.accounts, *context_,
                   writer_,         parts.files, bodyIndex_,     troubles_,      parts.isShowingSamples},
      directory_(environment_),
      engines_(environment_),
      downloads_(std::make_shared<BodyDownloads>(parts.executors.main)),
      bodies_(std::make_shared<BodyStore>(environment_, engines_, downloads_)),
      prefetch_(std::make_shared<BodyPrefetch>(environment_, engines_, downloads_)),
      lists_(std::make_shared<MessageLists>(environment_, status_, directory_)),
      selection_(environment_, *lists_),
      sync_(std::make_shared<AccountSync>(environment_, status_, directory_, engines_, syncHooks())),
      actions_(std::make_shared<MessageActions>(environment_, status_, directory_, engines_, actionHooks())),
      filing_(directory_, engines_, actions_, sync_) {
    bodies_->onStored = [weak = std::weak_ptr(prefetch_)](std::size_t bytes) {
        if (const auto prefetch = weak.lock()) prefetch->noteStored(bytes);
    };
    environment_.accounts.onRemove = [this](MailAccount account) { return removeAccountData(std::move(account)); };
    environment_.accounts.onChange = [this](MailAccount account) { return beginAnew(std::move(account)); };
    endBanners_ = status_.banner.onChange([this] { endBannerInTime(); });
    selection_.syncMailbox = [this](const MailboxKey& key) {
        if (const auto account = environment_.account(key.accountID))
            inBackground([this, account = *account, path = key.path]() -> Async<void> {
                return sync_->syncMailboxQuietly(account, path);
            });
    };
}

MailStore::~MailStore() {
    endBanners_.disconnect();
    environment_.accounts.onRemove = {};
    environment_.accounts.onChange = {};
}

void MailStore::add(std::unique_ptr<MailService> service) {
    services_.push_back(std::move(service));
}

// --- Between the parts -------------------------------------------------------------------------------------------

AccountSync::Hooks MailStore::syncHooks() {
    AccountSync::Hooks hooks;
    hooks.selectedMailbox = [this](const UUID& accountID) {
        return *selection_.accountID == accountID ? chosenMailbox(accountID) : std::nullopt;
    };
    hooks.chosenMailbox = [this](const UUID& accountID) { return chosenMailbox(accountID); };
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
    if (!isStopping_) actions_->sendUnsent(account.id);
    for (const auto& service : services_) service->checked(account, check);
    if (isRunning_ && !isStopping_ && environment_.account(account.id)) prefetch_->start(account);
}

std::optional<std::string> MailStore::chosenMailbox(const UUID& accountID) const {
    const auto found = selection_.mailboxes->find(accountID);
    return found == selection_.mailboxes->end() ? std::nullopt : std::optional(found->second);
}

/// A line that nobody looks at must not be told as news much later. That of an action ends with the time to undo it.
void MailStore::endBannerInTime() {
    const auto& banner = *status_.banner;
    if (!banner || banner->canUndo) return;
    const Duration lifetime = banner->lifetime.value_or(usualLifetime);
    inBackground([this, id = banner->id, lifetime]() -> Async<void> {
        co_await environment_.clock->wait(lifetime);
        if (status_.banner->has_value() && (*status_.banner)->id == id) status_.banner = std::optional<Banner>();
    });
}

/// Keeps a task until it has ended.
void MailStore::inBackground(std::move_only_function<Async<void>()> body) {
    if (isStopping_) return; // and waits for those that are there
    std::erase_if(background_, [](const Task& task) { return task.isFinished(); });
    background_.emplace_back(environment_.executors.main, std::move(body));
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
    if (isStopping_) co_return;
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
    for (const auto& account : environment_.allAccounts()) {
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
    for (const auto& account : environment_.allAccounts())
        if (account.id != removed) present.insert(account.id);
    return present;
}

void MailStore::refreshAll() {
    if (isShowingSamples()) status_.setChecked(sampleAccountID, environment_.clock->now());
    for (const auto& account : environment_.allAccounts())
        inBackground([this, account]() -> Async<void> { return sync_->syncAccount(account); });
}

/// The mailboxes whose sync brings what a list may be missing. A label is in many of them; new mail that gets it comes
/// into an inbox.
std::vector<MailboxRecord> MailStore::mailboxesBehind(const MessageListSource& source) {
    std::vector<MailboxRecord> found;
    if (const auto* mailbox = std::get_if<MailboxRecord>(&source)) found.push_back(*mailbox);
    const auto* scope = std::get_if<UnifiedScope>(&source);
    if (scope != nullptr) found = scope->mailboxes;
    if (const auto* label = std::get_if<LabelSource>(&source)) found = directory_.mailboxes(label->accountID);
    const bool isLabel = std::holds_alternative<LabelSource>(source) || (scope != nullptr && scope->label);
    std::erase_if(found, [&](const MailboxRecord& each) {
        if (isLabel) return each.role() != MailboxRole::inbox;
        return !each.isSelectable || each.role() == MailboxRole::all;
    });
    return found;
}

void MailStore::refreshVisible() {
    const auto list = selection_.currentList();
    if (!list || !selection_.syncMailbox) return;
    for (const auto& mailbox : mailboxesBehind(list->source)) selection_.syncMailbox(mailbox.key());
}

Async<void> MailStore::stop() {
    if (std::exchange(isStopping_, true)) co_return;
    actions_->commitPendingAction();
    for (const auto& service : services_) co_await service->stop();
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

/// What was connected with an earlier password or server is of no more use.
Async<void> MailStore::beginAnew(MailAccount account) {
    co_await endLoop(account.id);
    co_await prefetch_->cancel(account.id);
    engines_.remove(account.id);
    if (!isRunning_ || isStopping_) co_return;
    startLoops();
    for (const auto& service : services_) service->accountChanged(account.id);
}

/// What refuses keeps nothing else from going.
Async<void> MailStore::removeAccountData(MailAccount account) {
    const UUID id = account.id;
    const auto attempt = [](std::move_only_function<Async<void>()> step) -> Async<void> {
        try {
            co_await step();
        } catch (const UserError& error) {
            log("Mail").error("Couldn't drop all data of an account: {}", pub(error.sentence()));
        }
    };
    co_await attempt([&]() -> Async<void> { co_await endLoop(id); });
    co_await prefetch_->cancel(id);
    engines_.remove(id);
    co_await attempt([&]() -> Async<void> { co_await writer_.deleteAccount(id); });
    co_await callOn(environment_.executors.background, [&] { bodyIndex_.removeAccount(id); });
    co_await attempt([&]() -> Async<void> {
        environment_.settings.remove(bodyCutoffKey(id));
        co_return;
    });
    status_.remove(id);
    troubles_.settleAccount(id);
    sync_->forget(id);
    directory_.remove(id);
    for (const auto& service : services_) service->accountRemoved(id);
    selection_.repair(accountsWithout(id));
}

}
