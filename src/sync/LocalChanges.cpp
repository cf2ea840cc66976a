#include "sync/LocalChanges.h"

#include "base/Text.h"

#include <algorithm>

namespace velmo {

namespace {

/// Gives the flag this value among those of a message; false when it had it.
bool put(std::set<std::string>& flags, LocalChanges::Flag flag, bool value) {
    const std::string_view name = serverNameOf(flag);
    const auto isIt = [&](const std::string& other) { return text::equalsIgnoringCase(other, name); };
    if (std::ranges::any_of(flags, isIt) == value) return false;
    if (value)
        flags.emplace(name);
    else
        std::erase_if(flags, isIt);
    return true;
}

}

// --- Readings ----------------------------------------------------------------------------------------------------

std::shared_ptr<const LocalChanges::Reading> LocalChanges::beginReading() {
    const std::scoped_lock lock(mutex_);
    readings_.insert(time_);
    return std::make_shared<const Reading>(shared_from_this(), time_);
}

void LocalChanges::end(std::uint64_t begun) {
    const std::scoped_lock lock(mutex_);
    readings_.erase(readings_.find(begun));
    forgetWhatAllKnow();
}

/// What was settled before the first reading began needs no further care.
void LocalChanges::forgetWhatAllKnow() {
    const std::uint64_t first = readings_.empty() ? time_ : *readings_.begin();
    for (auto& [key, mailbox] : mailboxes_)
        std::erase_if(mailbox.flags, [&](const auto& entry) {
            const auto& settled = entry.second.settled;
            return settled && *settled <= first;
        });
    std::erase_if(mailboxes_, [&](const auto& entry) {
        const auto& mailbox = entry.second;
        return mailbox.flags.empty() && mailbox.leaving.empty() && mailbox.lastCounted <= first;
    });
}

bool LocalChanges::Reading::correct(MailboxDelta& delta, const MailboxKey& mailbox) const {
    const std::scoped_lock lock(changes_->mutex_);
    const auto found = changes_->mailboxes_.find(mailbox);
    if (found == changes_->mailboxes_.end()) return false;
    bool isOther = false;
    for (const auto& [key, change] : found->second.flags) {
        const auto told = delta.flagChanges.find(key.first);
        if (told == delta.flagChanges.end() || (change.settled && *change.settled <= begun_)) continue;
        if (put(told->second, key.second, change.value)) isOther = true;
    }
    return isOther;
}

bool LocalChanges::Reading::precedesCount(const MailboxKey& mailbox) const {
    const std::scoped_lock lock(changes_->mutex_);
    const auto found = changes_->mailboxes_.find(mailbox);
    if (found == changes_->mailboxes_.end()) return false;
    const auto& [flags, leaving, lastCounted] = found->second;
    const auto isOnTheWay = [](const auto& entry) { return entry.first.second == Flag::seen && !entry.second.settled; };
    return !leaving.empty() || lastCounted > begun_ || std::ranges::any_of(flags, isOnTheWay);
}

std::vector<std::uint32_t> LocalChanges::Reading::leaving(const MailboxKey& mailbox) const {
    const std::scoped_lock lock(changes_->mutex_);
    const auto found = changes_->mailboxes_.find(mailbox);
    if (found == changes_->mailboxes_.end()) return {};
    return {found->second.leaving.begin(), found->second.leaving.end()};
}

// --- Changes -----------------------------------------------------------------------------------------------------

void LocalChanges::changeFlag(const MailboxKey& mailbox, std::uint32_t uid, Flag flag, bool value) {
    const std::scoped_lock lock(mutex_);
    auto& held = mailboxes_[mailbox];
    held.flags[{uid, flag}] = {value, {}};
    ++time_;
    if (flag == Flag::seen) held.lastCounted = time_;
}

void LocalChanges::settleFlags(const MailboxKey& mailbox, std::span<const std::uint32_t> uids, Flag flag) {
    const std::scoped_lock lock(mutex_);
    auto& held = mailboxes_[mailbox];
    ++time_;
    for (const auto uid : uids) {
        const auto change = held.flags.find({uid, flag});
        if (change != held.flags.end()) change->second.settled = time_;
    }
    if (flag == Flag::seen) held.lastCounted = time_;
    forgetWhatAllKnow();
}

void LocalChanges::beginLeaving(const MailboxKey& mailbox, std::span<const std::uint32_t> uids) {
    const std::scoped_lock lock(mutex_);
    auto& held = mailboxes_[mailbox];
    held.leaving.insert(uids.begin(), uids.end());
    held.lastCounted = ++time_;
}

void LocalChanges::endLeaving(const MailboxKey& mailbox, std::span<const std::uint32_t> uids) {
    const std::scoped_lock lock(mutex_);
    auto& held = mailboxes_[mailbox];
    for (const auto uid : uids) held.leaving.erase(uid);
    held.lastCounted = ++time_;
    forgetWhatAllKnow();
}

}
