#include "store/LeavingMessages.h"

#include <map>
#include <vector>

namespace velmo {

void LeavingMessages::hide(std::span<const MessageRecord> records) {
    const auto ids = idsOf(records);
    status_.hide(ids);
    for (const auto& group : grouped(records)) {
        local_.beginLeaving(group.mailbox, group.uids);
        for (std::size_t i = 0; i < group.ids.size(); ++i) places_[group.ids[i]] = {group.mailbox, group.uids[i]};
    }
    count(ids, Count::leave);
}

void LeavingMessages::putBack(const std::set<std::int64_t>& ids) {
    count(ids, Count::comeBack);
    endLeaving(ids);
    status_.show(ids);
}

/// Also of those whose records a sync has removed meanwhile.
void LeavingMessages::endLeaving(const std::set<std::int64_t>& ids) {
    std::map<MailboxKey, std::vector<std::uint32_t>> ended;
    for (const auto id : ids) {
        const auto place = places_.extract(id);
        if (!place.empty()) ended[place.mapped().first].push_back(place.mapped().second);
    }
    for (const auto& [mailbox, uids] : ended) local_.endLeaving(mailbox, uids);
}

/// Goes by what is unread now, since that may change while they are hidden.
void LeavingMessages::count(const std::set<std::int64_t>& ids, Count direction) {
    writes_.run([wanted = std::vector<std::int64_t>(ids.begin(), ids.end()), direction](ModelContext& context) {
        std::map<MailboxKey, std::int64_t> unseen;
        for (const auto& record : context.messages.find(wanted)) {
            if (!record.isSeen) ++unseen[record.mailboxKey()];
        }
        for (const auto& [mailbox, number] : unseen)
            context.mailboxes.adjustUnreadCount(mailbox, direction == Count::leave ? -number : number);
    });
}

void LeavingMessages::haveLeft(const MessageGroup& group) {
    const std::set ids(group.ids.begin(), group.ids.end());
    endLeaving(ids);
    status_.show(ids);
}

}
