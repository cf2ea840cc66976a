#include "store/FlagChanges.h"

#include "base/Localisation.h"
#include "base/UserError.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace velmo {

namespace {

bool valueOf(const MessageRecord& record, FlagChanges::Flag flag) {
    return flag == FlagChanges::Flag::seen ? record.isSeen : record.isFlagged;
}

MessageChange changeTo(FlagChanges::Flag flag, bool value) {
    MessageChange change;
    (flag == FlagChanges::Flag::seen ? change.isSeen : change.isFlagged) = value;
    return change;
}

std::optional<bool>& shownValue(ShownFlags& shown, FlagChanges::Flag flag) {
    return flag == FlagChanges::Flag::seen ? shown.isSeen : shown.isFlagged;
}

/// The server has heard the command and will not do it. What else fails may work another time.
bool isRefusal(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const IMAPError& error) {
        // RFC 5530: for the moment.
        if (error.code() == "UNAVAILABLE" || error.code() == "INUSE") return false;
        return error.kind() == IMAPError::Kind::commandFailed || error.kind() == IMAPError::Kind::unexpected;
    } catch (...) {
        return false;
    }
}

bool isRenumbered(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const RenumberedMailbox&) {
        return true;
    } catch (...) {
        return false;
    }
}

std::string unsentKey(const UUID& accountID) {
    return "flags/unsent/" + accountID.text();
}

ActionTroubles::Action actionOf(FlagChanges::Flag flag) {
    return flag == FlagChanges::Flag::seen ? ActionTroubles::Action::seen : ActionTroubles::Action::flagged;
}

}

void FlagChanges::set(std::span<const MessageRecord> records, Flag flag, Change change) {
    const bool value = change == Change::add;
    const auto wanted = idsOf(records);
    const auto changed = differing(std::vector(wanted.begin(), wanted.end()), flag, value);
    const auto found = idsOf(changed);
    const std::vector ids(found.begin(), found.end());
    if (environment_.isShowingSamples) {
        store(ids, flag, value, Heard::yes, {});
        return;
    }
    ++number_;
    for (const auto id : ids) {
        auto& state = onTheWay_.try_emplace({id, flag}, OnTheWay{0, !value}).first->second;
        state.last = number_;
    }
    const Sent sent{{}, flag, change, number_, false};
    store(ids, flag, value, Heard::no, [weak = weak_from_this(), changed, sent] {
        if (const auto self = weak.lock()) self->sendAll(changed, sent);
    });
}

void FlagChanges::resume(const UUID& accountID) {
    if (environment_.isShowingSamples || !writes_.isIdle()) return;
    auto& context = environment_.context;
    std::map<std::pair<Flag, bool>, std::vector<std::int64_t>> unsent;
    for (const auto& each : context.unsentFlags.of(accountID)) {
        if (!onTheWay_.try_emplace({each.message, each.flag}, OnTheWay{number_ + 1, each.serverValue}).second) continue;
        unsent[{each.flag, each.value}].push_back(each.message);
    }
    ++number_;
    for (const auto& [what, ids] : unsent) {
        const auto change = what.second ? Change::add : Change::remove;
        sendAll(context.messages.find(ids), {{}, what.first, change, number_, true});
    }
}

/// Those that are shown with another value.
std::vector<MessageRecord> FlagChanges::differing(const std::vector<std::int64_t>& ids, Flag flag, bool value) {
    auto& context = environment_.context;
    auto found = context.snapshot([&] { return context.messages.find(ids); });
    std::erase_if(found, [&](const auto& record) {
        auto shown = valueOf(record, flag);
        const auto waiting = status_.shownFlags->find(record.id);
        if (waiting != status_.shownFlags->end()) {
            auto flags = waiting->second;
            shown = shownValue(flags, flag).value_or(shown);
        }
        return shown == value;
    });
    return found;
}

/// Writes the flag of those that have another, and counts them.
void FlagChanges::store(const std::vector<std::int64_t>& ids, Flag flag, bool value, Heard heard,
                        const std::function<void()>& then) {
    std::set<std::int64_t> hidden;
    std::ranges::copy_if(ids, std::inserter(hidden, hidden.end()),
                         [&](auto id) { return status_.hidden->contains(id); });
    const bool isOnServer = !environment_.isShowingSamples;
    auto work = [ids, flag, value, heard, hidden, isOnServer, writer = environment_.writer](ModelContext& context) {
        SyncWriter copy = writer;
        std::map<MailboxKey, std::int64_t> unread;
        for (const auto& record : context.messages.find(ids)) {
            if (isOnServer && heard == Heard::yes) context.unsentFlags.settle(record.id, flag);
            if (valueOf(record, flag) == value) continue;
            if (isOnServer && std::in_range<std::uint32_t>(record.uid))
                copy.localChanges().changeFlag(record.mailboxKey(), static_cast<std::uint32_t>(record.uid), flag,
                                               value);
            if (isOnServer && heard == Heard::no) context.unsentFlags.note(record.id, flag, value);
            context.messages.change(record.id, changeTo(flag, value));
            // What is hidden is not counted; it is when it comes back.
            if (flag == Flag::seen && !hidden.contains(record.id)) unread[record.mailboxKey()] += value ? -1 : 1;
        }
        for (const auto& [mailbox, difference] : unread) context.mailboxes.adjustUnreadCount(mailbox, difference);
    };
    const auto isStored = std::make_shared<bool>(false);
    writes_.run(std::move(work), [weak = weak_from_this(), isStored, ids, flag, value, then] {
        *isStored = true;
        if (const auto self = weak.lock()) self->status_.endShowing(ids, flag, value);
        if (then) then();
    });
    if (!*isStored) status_.showFlag(ids, flag, value);
}

void FlagChanges::sendAll(std::span<const MessageRecord> records, const Sent& sent) {
    for (auto& group : grouped(records)) send({std::move(group), sent.flag, sent.change, sent.number, sent.isRepeated});
}

void FlagChanges::send(Sent sent) {
    const UUID accountID = sent.group.mailbox.accountID;
    lanes_.add(accountID, [weak = weak_from_this(), sent = std::move(sent)] { return run(weak, sent); });
}

Async<void> FlagChanges::run(std::weak_ptr<FlagChanges> weak, Sent sent) {
    std::shared_ptr<SyncEngine> engine;
    if (const auto self = weak.lock()) engine = self->engines_.engineOf(sent.group.mailbox.accountID);
    CommandOutcome outcome = CommandOutcome::cancelled();
    if (engine) {
        auto command = setFlagOnServer(engine, sent.group, sent.change, std::string(serverNameOf(sent.flag)));
        outcome = co_await std::move(command);
    }
    if (const auto self = weak.lock()) self->ended(sent, outcome);
}

void FlagChanges::ended(const Sent& sent, const CommandOutcome& outcome) {
    if (outcome.failure && !isRefusal(outcome.failure)) {
        postpone(sent, outcome);
        return;
    }
    const bool wanted = sent.change == Change::add;
    for (const bool value : {wanted, !wanted}) {
        const auto settled = settle(sent, !outcome.failure, value);
        const auto& mailbox = sent.group.mailbox;
        SyncWriter writer = environment_.writer;
        store(settled.ids, sent.flag, value, Heard::yes, [writer, mailbox, settled, flag = sent.flag]() mutable {
            writer.localChanges().settleFlags(mailbox, settled.uids, flag);
        });
    }
    if (outcome.failure)
        refused(sent, outcome);
    else
        confirmed(sent);
}

/// The server could not be asked. The changes stay, and so does the note that it has not heard of them; that one
/// follows a message which gets another UID.
void FlagChanges::postpone(const Sent& sent, const CommandOutcome& outcome) {
    std::vector<std::uint32_t> uids;
    for (std::size_t i = 0; i < sent.group.ids.size(); ++i) {
        const auto found = onTheWay_.find({sent.group.ids[i], sent.flag});
        if (found == onTheWay_.end() || found->second.last != sent.number) continue;
        uids.push_back(sent.group.uids[i]);
        onTheWay_.erase(found);
    }
    environment_.writer.localChanges().settleFlags(sent.group.mailbox, uids, sent.flag);
    const UUID accountID = sent.group.mailbox.accountID;
    if (isCancellation(outcome.failure) || !environment_.account(accountID)) return;
    const std::string why = sentenceOf(outcome.failure);
    if (!sent.isRepeated)
        status_.showError(why + " " + tr("The change is kept here, and the server is told as soon as it answers."));
    environment_.troubles.add(unsentKey(accountID), accountID,
                              tr("Messages were marked here, and the server has not heard of it yet. It is told as "
                                 "soon as it answers. The last attempt: {}",
                                 why));
    // The messages are found again under their new numbers.
    if (isRenumbered(outcome.failure) || outcome.isUncertain) syncs_.add(sent.group.mailbox);
}

void FlagChanges::refused(const Sent& sent, const CommandOutcome& outcome) {
    status_.showError(sentenceOf(outcome.failure));
    ActionTroubles(environment_).add(actionOf(sent.flag), sent.group, outcome);
    if (outcome.isUncertain) syncs_.add(sent.group.mailbox);
}

void FlagChanges::confirmed(const Sent& sent) {
    ActionTroubles(environment_).settle(actionOf(sent.flag), sent.group);
    const UUID accountID = sent.group.mailbox.accountID;
    if (environment_.context.unsentFlags.of(accountID).empty()) environment_.troubles.settle(unsentKey(accountID));
}

bool FlagChanges::isUnderWay(const std::set<std::int64_t>& ids) const {
    return std::ranges::any_of(onTheWay_, [&](const auto& one) { return ids.contains(one.first.first); });
}

bool FlagChanges::isUnconfirmed(const std::set<std::int64_t>& ids) const {
    return isUnderWay(ids) ||
           std::ranges::any_of(ids, [&](auto id) { return environment_.context.unsentFlags.isUnsent(id); });
}

/// Gives the messages of the command that nobody is changing any more, and whose flag has this value on the server.
FlagChanges::Settled FlagChanges::settle(const Sent& sent, bool hasSucceeded, bool value) {
    Settled settled;
    for (std::size_t i = 0; i < sent.group.ids.size(); ++i) {
        const auto id = sent.group.ids[i];
        const auto found = onTheWay_.find({id, sent.flag});
        if (found == onTheWay_.end()) continue;
        if (hasSucceeded) found->second.onServer = sent.change == Change::add;
        if (found->second.last != sent.number || found->second.onServer != value) continue;
        settled.ids.push_back(id);
        settled.uids.push_back(sent.group.uids[i]);
        onTheWay_.erase(found);
    }
    return settled;
}

}
