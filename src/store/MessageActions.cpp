#include "store/MessageActions.h"

#include "base/Localisation.h"
#include "platform/Log.h"
#include "store/ActionTroubles.h"
#include "store/CommandLanes.h"
#include "store/Departures.h"
#include "store/FlagChanges.h"
#include "store/MailboxSyncs.h"
#include "store/PendingAction.h"
#include "store/RoleMailboxes.h"

#include <algorithm>
#include <map>
#include <utility>

namespace velmo {

namespace {

using Records = MessageActions::Records;
using Taken = MessageActions::Taken;

using Destinations = std::map<UUID, Destination>;

std::map<UUID, Records> byAccount(const Records& records) {
    std::map<UUID, Records> accounts;
    for (const auto& record : records) accounts[record.accountID].push_back(record);
    return accounts;
}

bool allStandIn(const Records& records, const std::string& path) {
    return std::ranges::all_of(records, [&](const auto& record) { return record.mailboxPath == path; });
}

std::string deletedTitle(std::size_t count) {
    return trCount("Deleted", "Deleted {} messages", count);
}

}

// --- What is shared by all actions -------------------------------------------------------------------------------

struct MessageActions::State {
    State(StoreEnvironment& environment_, StoreStatus& status_, MailboxDirectory& directory_, AccountEngines& engines_,
          Hooks hooks_)
        : environment(environment_),
          status(status_),
          directory(directory_),
          engines(engines_),
          hooks(std::move(hooks_)),
          writes(std::make_shared<ActionWrites>(environment)),
          commands(environment.executors.main),
          syncs(std::make_shared<MailboxSyncs>(environment, hooks.syncMailbox)),
          leaving(std::make_shared<Departures>(environment, status, engines, commands, *syncs, *writes)),
          flags(std::make_shared<FlagChanges>(environment, status, engines, commands, *syncs, *writes)),
          pending(std::make_shared<PendingAction>(environment, status)),
          roles(directory, engines, hooks.listMailboxes) {}

    /// What the store holds now of messages that are not about to leave, that have an account, and a number that its
    /// server knows.
    Records movable(const Records& records);
    /// The samples, and those of accounts that have a server.
    Records flaggable(Records records) const;
    Taken refuse(const std::string& sentence) const;
    Taken setFlag(const Records& records, FlagChanges::Flag flag, FlagChanges::Change change);
    bool bannerOffersAnotherUndo() const;

    std::optional<std::string> pathOf(MailboxRole role, const UUID& accountID);
    std::optional<MailboxRecord> mailboxAt(const std::string& path, const UUID& accountID);
    Destinations destinationsFor(const Records& records, const std::string& path);
    static Records leaversOf(Records records, const Destinations& destinations);
    Taken takeOut(const Records& records, Destinations destinations, const std::string& title);
    static std::vector<Departure> departures(const Records& records, const Destinations& destinations);

    StoreEnvironment& environment;
    StoreStatus& status;
    MailboxDirectory& directory;
    AccountEngines& engines;
    Hooks hooks;
    std::shared_ptr<ActionWrites> writes;
    CommandLanes commands;
    std::shared_ptr<MailboxSyncs> syncs;
    std::shared_ptr<Departures> leaving;
    std::shared_ptr<FlagChanges> flags;
    std::shared_ptr<PendingAction> pending;
    RoleMailboxes roles;

    /// What was done last, whether or not it can be undone.
    enum class Latest { nothing, departure, flags, labels };
    Latest latest = Latest::nothing;
};

MessageActions::MessageActions(StoreEnvironment& environment, StoreStatus& status, MailboxDirectory& directory,
                               AccountEngines& engines, Hooks hooks)
    : state_(std::make_shared<State>(environment, status, directory, engines, std::move(hooks))) {}

MessageActions::~MessageActions() = default;

Records MessageActions::State::movable(const Records& records) {
    const auto ids = idsOf(records);
    Records found;
    try {
        found = environment.context.snapshot(
            [&] { return environment.context.messages.find(std::vector(ids.begin(), ids.end())); });
    } catch (const sqlite::SQLiteError& error) {
        log("Mail").error("Couldn't read mail cache: {}", pub(error.what()));
    }
    std::erase_if(found, [&](const auto& record) {
        const bool isNumber = record.uid != 0 && std::in_range<std::uint32_t>(record.uid);
        return !isNumber || status.hidden->contains(record.id) || !environment.account(record.accountID);
    });
    return found;
}

Records MessageActions::State::flaggable(Records records) const {
    if (environment.isShowingSamples) return records;
    std::erase_if(records, [&](const auto& record) { return !environment.account(record.accountID); });
    return records;
}

Taken MessageActions::State::refuse(const std::string& sentence) const {
    status.showError(sentence);
    return {};
}

std::optional<std::string> MessageActions::State::pathOf(MailboxRole role, const UUID& accountID) {
    const auto mailbox = directory.mailbox(role, accountID);
    return mailbox ? std::optional(mailbox->path) : std::nullopt;
}

std::optional<MailboxRecord> MessageActions::State::mailboxAt(const std::string& path, const UUID& accountID) {
    const auto& all = directory.mailboxes(accountID);
    const auto found = std::ranges::find(all, path, &MailboxRecord::path);
    return found == all.end() ? std::nullopt : std::optional(*found);
}

/// A path means a mailbox of the accounts that have it. One that nobody has is a new one of the only account.
Destinations MessageActions::State::destinationsFor(const Records& records, const std::string& path) {
    const auto accounts = byAccount(records);
    Destinations destinations;
    for (const auto& [accountID, group] : accounts) {
        if (accounts.size() == 1 || mailboxAt(path, accountID)) destinations[accountID] = path;
    }
    return destinations;
}

// --- Taking messages out of mailboxes ----------------------------------------------------------------------------

/// Without those that stand there already, and those whose account has no destination.
Records MessageActions::State::leaversOf(Records records, const Destinations& destinations) {
    std::erase_if(records, [&](const auto& record) {
        const auto destination = destinations.find(record.accountID);
        return destination == destinations.end() || destination->second == record.mailboxPath;
    });
    return records;
}

std::vector<Departure> MessageActions::State::departures(const Records& records, const Destinations& destinations) {
    std::vector<Departure> all;
    for (auto& group : grouped(records)) {
        const auto& destination = destinations.at(group.mailbox.accountID);
        all.push_back({std::move(group), destination});
    }
    return all;
}

/// With time to undo. `records` are leavers.
Taken MessageActions::State::takeOut(const Records& records, Destinations destinations, const std::string& title) {
    if (records.empty()) return {};
    // The one before begins first, so that commands keep the order of the actions.
    pending->commit();
    auto ids = idsOf(records);
    if (hooks.selectNext) hooks.selectNext(ids);
    leaving->hide(records);
    PendingAction::Step step;
    step.commit = [weak = std::weak_ptr(leaving), all = departures(records, destinations)] {
        if (const auto self = weak.lock()) self->begin(all);
    };
    step.undo = [weak = std::weak_ptr(leaving), ids] {
        if (const auto self = weak.lock()) self->putBack(ids);
    };
    pending->begin(title, std::move(step));
    latest = Latest::departure;
    return ids;
}

// --- The actions -------------------------------------------------------------------------------------------------

Taken MessageActions::archive(const Records& records) {
    const auto movable = state_->movable(records);
    Destinations destinations;
    for (const auto& [accountID, group] : byAccount(movable)) {
        auto path = state_->pathOf(MailboxRole::archive, accountID);
        if (!path) path = state_->pathOf(MailboxRole::all, accountID);
        if (!path) return state_->refuse(tr("This account has no Archive folder."));
        destinations[accountID] = path;
    }
    const auto leavers = State::leaversOf(movable, destinations);
    return state_->takeOut(leavers, destinations, trCount("Archived", "Archived {} messages", leavers.size()));
}

Taken MessageActions::moveToJunk(const Records& records) {
    const auto movable = state_->movable(records);
    Destinations destinations;
    for (const auto& [accountID, group] : byAccount(movable)) {
        const auto path = state_->pathOf(MailboxRole::junk, accountID);
        if (!path) return state_->refuse(tr("This account has no Junk folder."));
        destinations[accountID] = path;
    }
    const auto leavers = State::leaversOf(movable, destinations);
    if (leavers.empty()) return moveToInbox(movable);
    return state_->takeOut(leavers, destinations,
                           trCount("Moved to Junk", "Moved {} messages to Junk", leavers.size()));
}

Taken MessageActions::moveToTrash(const Records& records) {
    const auto movable = state_->movable(records);
    Destinations destinations;
    bool deletes = false;
    for (const auto& [accountID, group] : byAccount(movable)) {
        auto path = state_->pathOf(MailboxRole::trash, accountID);
        if (path && allStandIn(group, *path)) path.reset();
        deletes = deletes || !path;
        destinations[accountID] = path;
    }
    const auto leavers = State::leaversOf(movable, destinations);
    return state_->takeOut(leavers, destinations,
                           deletes ? deletedTitle(leavers.size())
                                   : trCount("Moved to Trash", "Moved {} messages to Trash", leavers.size()));
}

Taken MessageActions::moveToInbox(const Records& records) {
    const auto movable = state_->movable(records);
    if (state_->hooks.unsnooze && !movable.empty()) state_->hooks.unsnooze(movable);
    Destinations destinations;
    for (const auto& [accountID, group] : byAccount(movable)) {
        if (const auto path = state_->pathOf(MailboxRole::inbox, accountID)) destinations[accountID] = path;
    }
    if (destinations.empty() && !movable.empty()) return state_->refuse(tr("This account has no Inbox folder."));
    return state_->takeOut(State::leaversOf(movable, destinations), destinations, tr("Moved to Inbox"));
}

Taken MessageActions::move(const Records& records, const std::string& toPath, std::optional<std::string> title) {
    const auto movable = state_->movable(records);
    const auto destinations = state_->destinationsFor(movable, toPath);
    const auto leavers = State::leaversOf(movable, destinations);
    if (leavers.empty()) return {};
    if (!title) {
        const auto target = state_->mailboxAt(toPath, leavers.front().accountID);
        title = tr("Moved to {}", target ? target->name : toPath);
    }
    return state_->takeOut(leavers, destinations, *title);
}

void MessageActions::moveAtOnce(const Records& records, const std::string& toPath) {
    const auto movable = state_->movable(records);
    const auto destinations = state_->destinationsFor(movable, toPath);
    const auto leavers = State::leaversOf(movable, destinations);
    if (leavers.empty()) return;
    state_->pending->commit();
    if (state_->hooks.selectNext) state_->hooks.selectNext(idsOf(leavers));
    state_->leaving->hide(leavers);
    state_->leaving->begin(State::departures(leavers, destinations));
}

Taken MessageActions::deleteForever(const Records& records, const std::string& title) {
    const auto movable = state_->movable(records);
    Destinations destinations;
    for (const auto& record : movable) destinations[record.accountID] = std::nullopt;
    return state_->takeOut(movable, destinations, title);
}

Taken MessageActions::State::setFlag(const Records& records, FlagChanges::Flag flag, FlagChanges::Change change) {
    const auto wanted = flaggable(records);
    flags->set(wanted, flag, change);
    if (!wanted.empty()) latest = Latest::flags;
    return idsOf(wanted);
}

Taken MessageActions::setRead(const Records& records, ReadState state) {
    const auto change = state == ReadState::read ? FlagChanges::Change::add : FlagChanges::Change::remove;
    return state_->setFlag(records, FlagChanges::Flag::seen, change);
}

Taken MessageActions::setFlagged(const Records& records, FlagState state) {
    const auto change = state == FlagState::flagged ? FlagChanges::Change::add : FlagChanges::Change::remove;
    return state_->setFlag(records, FlagChanges::Flag::flagged, change);
}

Taken MessageActions::label(const Records& records, const std::string& key, LabelChange change) {
    const auto ids = idsOf(records);
    const std::vector<std::int64_t> wanted(ids.begin(), ids.end());
    auto& context = state_->environment.context;
    auto present = context.snapshot([&] { return idsOf(context.messages.find(wanted)); });
    state_->writes->run([wanted, key, change](ModelContext& writing) {
        for (const auto& record : writing.messages.find(wanted)) {
            MessageChange labels;
            labels.labelsJoined = settingLabel(record.labelsJoined, key, change);
            writing.messages.change(record.id, labels);
        }
    });
    if (!present.empty()) state_->latest = State::Latest::labels;
    return present;
}

bool MessageActions::State::bannerOffersAnotherUndo() const {
    const auto& banner = *status.banner;
    return banner && banner->outboxID;
}

void MessageActions::undo() {
    if (state_->bannerOffersAnotherUndo()) return;
    if (state_->pending->title()) state_->latest = State::Latest::departure;
    state_->pending->undo();
}

std::optional<std::string> MessageActions::undoable() const {
    return state_->bannerOffersAnotherUndo() ? std::nullopt : state_->pending->title();
}

std::string MessageActions::whyNotUndoable() const {
    const auto& ended = state_->pending->ended();
    switch (state_->latest) {
    case State::Latest::flags:
        return tr("There is nothing to undo: flags change at once, and the opposite command takes them back (flag and "
                  "unflag, "
                  "seen and unseen).");
    case State::Latest::labels:
        return tr("There is nothing to undo: labels change at once, and velmo unlabel or velmo label takes them back.");
    case State::Latest::departure: break;
    case State::Latest::nothing: return tr("There is nothing to undo: nothing was done since Velmo-Mail started.");
    }
    if (!ended) return tr("There is nothing to undo.");
    return ended->second == PendingAction::Ending::undone
               ? tr("There is nothing to undo: “{}” is taken back already.", ended->first)
               : tr("There is nothing to undo: the time for “{}” is over, and it is carried out. Messages come back "
                    "with "
                    "velmo inbox or velmo move.",
                    ended->first);
}

bool MessageActions::isUnderWay(const Taken& messages) const {
    return state_->flags->isUnderWay(messages);
}

bool MessageActions::isUnconfirmed(const Taken& messages) const {
    return state_->flags->isUnconfirmed(messages);
}

std::optional<std::string> MessageActions::takeFailure(const Taken& messages) {
    return ActionTroubles(state_->environment).take(messages);
}

void MessageActions::commitPendingAction() {
    state_->pending->commit();
}

Async<std::string> MessageActions::roleMailbox(MailAccount account, MailboxRole role) {
    const auto state = state_;
    co_return co_await state->roles.path(std::move(account), role);
}

void MessageActions::sendUnsent(const UUID& accountID) {
    state_->flags->resume(accountID);
}

Async<void> MessageActions::finished() {
    const auto state = state_;
    while (!state->commands.isIdle() || !state->syncs->isIdle() || !state->writes->isIdle()) {
        co_await state->writes->finished();
        co_await state->commands.finished();
        co_await state->syncs->finished();
    }
}

}
