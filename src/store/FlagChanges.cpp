#include "store/FlagChanges.h"

#include "base/UserError.h"
#include "store/SavedCache.h"

#include <algorithm>
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

}

void FlagChanges::set(std::span<const MessageRecord> records, Flag flag, Change change) {
    const bool value = change == Change::add;
    const auto ids = idsOf(records);
    const auto changed = store(std::vector(ids.begin(), ids.end()), flag, value);
    if (environment_.isShowingSamples) return;
    ++number_;
    for (const auto& record : changed) {
        auto& state = onTheWay_.try_emplace({record.id, flag}, OnTheWay{0, !value}).first->second;
        state.last = number_;
    }
    for (auto& group : grouped(changed)) send({std::move(group), flag, change, number_});
}

/// Writes the flag of those that have another, and counts them. Gives them as they were.
std::vector<MessageRecord> FlagChanges::store(std::span<const std::int64_t> ids, Flag flag, bool value) {
    std::vector<MessageRecord> changed;
    LocalChanges& local = environment_.writer.localChanges();
    saveCache(environment_.context, [&](ModelContext& context) {
        changed = context.messages.find(ids);
        std::erase_if(changed, [&](const auto& record) { return valueOf(record, flag) == value; });
        std::map<MailboxKey, std::int64_t> unread;
        for (const auto& record : changed) {
            if (!environment_.isShowingSamples && std::in_range<std::uint32_t>(record.uid))
                local.changeFlag(record.mailboxKey(), static_cast<std::uint32_t>(record.uid), flag, value);
            context.messages.change(record.id, changeTo(flag, value));
            // What is hidden is not counted; it is when it comes back.
            const bool counts = flag == Flag::seen && !status_.hidden->contains(record.id);
            if (counts) unread[record.mailboxKey()] += value ? -1 : 1;
        }
        for (const auto& [mailbox, difference] : unread) context.mailboxes.adjustUnreadCount(mailbox, difference);
    });
    return changed;
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
        auto command = setFlagOnServer(engine, sent.group, sent.change, std::string(LocalChanges::nameOf(sent.flag)));
        outcome = co_await std::move(command);
    }
    if (const auto self = weak.lock()) self->ended(sent, outcome);
}

void FlagChanges::ended(const Sent& sent, const CommandOutcome& outcome) {
    const bool wanted = sent.change == Change::add;
    for (const bool value : {wanted, !wanted}) {
        const auto settled = settle(sent, !outcome.failure, value);
        if (!isCancellation(outcome.failure)) store(settled.ids, sent.flag, value);
        environment_.writer.localChanges().settleFlags(sent.group.mailbox, settled.uids, sent.flag);
    }
    const auto action = sent.flag == Flag::seen ? ActionTroubles::Action::seen : ActionTroubles::Action::flagged;
    if (!outcome.failure) ActionTroubles(environment_).settle(action, sent.group);
    if (!outcome.failure || isCancellation(outcome.failure)) return;
    ActionTroubles(environment_).add(action, sent.group, outcome);
    status_.showError(sentenceOf(outcome.failure));
    if (outcome.isUncertain) syncs_.add(sent.group.mailbox);
}

bool FlagChanges::isUnderWay(const std::set<std::int64_t>& ids) const {
    return std::ranges::any_of(onTheWay_, [&](const auto& one) { return ids.contains(one.first.first); });
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
