#include "store/MessageGroups.h"

#include <map>
#include <utility>

namespace velmo {

namespace {

/// Eleven bytes each at most.
constexpr std::size_t messagesInACommand = 500;

}

std::vector<MessageGroup> grouped(std::span<const MessageRecord> records) {
    std::vector<MessageGroup> groups;
    std::map<std::pair<MailboxKey, std::int64_t>, std::size_t> open;
    for (const auto& record : records) {
        if (record.uid == 0 || !std::in_range<std::uint32_t>(record.uid)) continue;
        const auto key = std::pair(record.mailboxKey(), record.uidValidity);
        const auto found = open.find(key);
        if (found == open.end() || groups[found->second].ids.size() == messagesInACommand) {
            open[key] = groups.size();
            groups.push_back({record.mailboxKey(), record.uidValidity, {}, {}});
        }
        auto& group = groups[open[key]];
        group.ids.push_back(record.id);
        group.uids.push_back(static_cast<std::uint32_t>(record.uid));
    }
    return groups;
}

std::set<std::int64_t> idsOf(std::span<const MessageRecord> records) {
    std::set<std::int64_t> ids;
    for (const auto& record : records) ids.insert(record.id);
    return ids;
}

}
