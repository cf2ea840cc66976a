#include "sync/Keepsakes.h"

#include <algorithm>
#include <set>

namespace velmo {

namespace {

/// A mailbox that isn't reached for a while must not lose what was put into it.
constexpr Duration timeToBeMet = std::chrono::hours(24);

bool isThrownAway(const MailboxRecord& mailbox) {
    return mailbox.role() == MailboxRole::junk || mailbox.role() == MailboxRole::trash;
}

}

void Keepsakes::keep(const MailboxRecord& mailbox, std::span<const std::int64_t> messages) {
    for (const auto id : messages) {
        if (auto keepsake = context_.keepsakes.keep(id, now_)) kept(std::move(*keepsake), !isThrownAway(mailbox));
    }
}

void Keepsakes::keepAll(const MailboxRecord& mailbox) {
    for (auto& keepsake : context_.keepsakes.keepAll(mailbox.key(), now_))
        kept(std::move(keepsake), !isThrownAway(mailbox));
}

void Keepsakes::keep(std::int64_t message, const std::optional<KeepsakeTable::Target>& target) {
    if (auto keepsake = context_.keepsakes.keep(message, now_, target)) kept(std::move(*keepsake), true);
}

void Keepsakes::kept(Keepsake keepsake, bool withBody) {
    if (keepsake.hasBody && withBody) kept_.push_back(std::move(keepsake));
}

void Keepsakes::give(std::span<MessageRecord> records) {
    flags_.clear();
    const bool hasKeepsakes = !context_.keepsakes.isEmpty();
    for (std::size_t i = 0; i < records.size(); ++i) {
        auto& record = records[i];
        auto keepsake = hasKeepsakes ? context_.keepsakes.take(record) : std::nullopt;
        if (!keepsake) keepsake = context_.keepsakes.copyOf(record);
        if (!keepsake) continue;
        keepsake->giveTo(record);
        if (keepsake->hasBody) record.hasBody = files_.adopt(keepsake->place, keepsake->id, BodyKey::of(record));
        const auto takeFlag = [&](PersonalFlag flag, const std::optional<bool>& wanted, bool& shown) {
            if (!wanted || *wanted == shown) return;
            flags_.push_back({static_cast<std::int64_t>(i), flag, *wanted, shown});
            shown = *wanted;
        };
        takeFlag(PersonalFlag::seen, keepsake->isSeen, record.isSeen);
        takeFlag(PersonalFlag::flagged, keepsake->isFlagged, record.isFlagged);
        if (keepsake->id != 0) spent_.push_back(std::move(*keepsake));
    }
}

void Keepsakes::giveFlags(std::span<const MessageRecord> records) {
    for (auto unsent : std::exchange(flags_, {})) {
        unsent.message = records[static_cast<std::size_t>(unsent.message)].id;
        context_.unsentFlags.put(unsent);
    }
}

void Keepsakes::expire() {
    std::ranges::move(context_.keepsakes.expire(now_ - timeToBeMet), std::back_inserter(spent_));
}

void Keepsakes::finish() {
    std::set<std::int64_t> spent;
    for (const auto& keepsake : spent_) spent.insert(keepsake.id);
    for (const auto& keepsake : kept_) {
        if (!spent.contains(keepsake.id)) files_.setAside(keepsake.place, keepsake.id);
    }
    for (const auto& keepsake : spent_) files_.dropAside(keepsake.place.accountID, keepsake.id);
    kept_.clear();
    spent_.clear();
}

}
