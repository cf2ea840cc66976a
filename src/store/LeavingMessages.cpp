#include "store/LeavingMessages.h"

#include "store/SavedCache.h"

#include <map>
#include <vector>

namespace velmo {

void LeavingMessages::hide(std::span<const MessageRecord> records) {
    const auto ids = idsOf(records);
    status_.hide(ids);
    count(ids, Count::leave);
}

void LeavingMessages::putBack(const std::set<std::int64_t>& ids) {
    count(ids, Count::comeBack);
    status_.show(ids);
}

/// Goes by what is unread now, since that may change while they are hidden.
void LeavingMessages::count(const std::set<std::int64_t>& ids, Count direction) {
    saveCache(environment_.context, [&](ModelContext& context) {
        const std::vector<std::int64_t> wanted(ids.begin(), ids.end());
        std::map<MailboxKey, std::int64_t> unseen;
        for (const auto& record : context.messages.find(wanted)) {
            if (!record.isSeen) ++unseen[record.mailboxKey()];
        }
        for (const auto& [mailbox, number] : unseen)
            context.mailboxes.adjustUnreadCount(mailbox, direction == Count::leave ? -number : number);
    });
}

void LeavingMessages::remove(const MessageGroup& group) {
    saveCache(environment_.context, [&](ModelContext& context) { context.messages.remove(group.mailbox, group.ids); });
    status_.show(std::set(group.ids.begin(), group.ids.end()));
}

void removeBodies(const MessageFiles& files, const MessageGroup& group) {
    for (const auto uid : group.uids)
        files.deleteBody({group.mailbox.accountID, group.mailbox.path, group.uidValidity, uid});
}

}
