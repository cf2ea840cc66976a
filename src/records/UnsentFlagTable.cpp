#include "records/UnsentFlagTable.h"

#include "base/Text.h"
#include "records/StoreConnection.h"

#include <algorithm>

namespace velmo {

namespace {

bool holds(const std::set<std::string>& flags, std::string_view name) {
    return std::ranges::any_of(flags, [&](const auto& each) { return text::equalsIgnoringCase(each, name); });
}

void setFlag(std::set<std::string>& flags, std::string_view name, bool value) {
    std::erase_if(flags, [&](const auto& each) { return text::equalsIgnoringCase(each, name); });
    if (value) flags.emplace(name);
}

PersonalFlag flagOf(std::int64_t number) {
    return number == 0 ? PersonalFlag::seen : PersonalFlag::flagged;
}

}

std::string_view serverNameOf(PersonalFlag flag) {
    return flag == PersonalFlag::seen ? "\\Seen" : "\\Flagged";
}

void UnsentFlagTable::note(std::int64_t message, PersonalFlag flag, bool value) {
    connection_.write([&] {
        connection_
            .query("INSERT INTO unsentFlags (message, flag, value, serverValue) VALUES (?, ?, ?, ?) "
                   "ON CONFLICT (message, flag) DO UPDATE SET value = excluded.value")
            .run(message, static_cast<int>(flag), value, !value);
    });
}

void UnsentFlagTable::put(const UnsentFlag& unsent) {
    connection_.write([&] {
        connection_.query("REPLACE INTO unsentFlags (message, flag, value, serverValue) VALUES (?, ?, ?, ?)")
            .run(unsent.message, static_cast<int>(unsent.flag), unsent.value, unsent.serverValue);
    });
}

void UnsentFlagTable::settle(std::int64_t message, PersonalFlag flag) {
    connection_.write([&] {
        connection_.query("DELETE FROM unsentFlags WHERE message = ? AND flag = ?")
            .run(message, static_cast<int>(flag));
    });
}

bool UnsentFlagTable::isUnsent(std::int64_t message) {
    auto row = connection_.query("SELECT 1 FROM unsentFlags WHERE message = ? LIMIT 1");
    row.bind(message);
    return row.step();
}

std::int64_t UnsentFlagTable::unreadDifference(const MailboxKey& mailbox) {
    auto row =
        connection_.query("SELECT ifnull(sum(u.serverValue - u.value), 0) FROM unsentFlags u CROSS JOIN messages "
                          "m ON m.id = u.message WHERE u.flag = 0 AND m.accountID = ? AND m.mailboxPath = ?");
    row.bind(mailbox.accountID, mailbox.path);
    std::int64_t difference = 0;
    if (row.step()) row.read(difference);
    return difference;
}

std::vector<UnsentFlag> UnsentFlagTable::of(const UUID& accountID) {
    std::vector<UnsentFlag> all;
    auto row = connection_.query("SELECT u.message, u.flag, u.value, u.serverValue FROM unsentFlags u "
                                 "CROSS JOIN messages m ON m.id = u.message WHERE m.accountID = ? ORDER BY u.message");
    row.bind(accountID);
    while (row.step()) {
        auto& unsent = all.emplace_back();
        std::int64_t flag = 0;
        row.read(unsent.message, flag, unsent.value, unsent.serverValue);
        unsent.flag = flagOf(flag);
    }
    return all;
}

bool UnsentFlagTable::correct(const MailboxKey& mailbox, std::map<std::uint32_t, std::set<std::string>>& flags) {
    if (flags.empty()) return false;
    std::vector<UnsentFlag> outdated;
    bool isOther = false;
    {
        auto row = connection_.query(
            "SELECT u.message, u.flag, u.value, u.serverValue, m.uid FROM unsentFlags u CROSS JOIN messages m "
            "ON m.id = u.message WHERE m.accountID = ? AND m.mailboxPath = ?");
        row.bind(mailbox.accountID, mailbox.path);
        while (row.step()) {
            UnsentFlag unsent;
            std::int64_t flag = 0;
            std::int64_t uid = 0;
            row.read(unsent.message, flag, unsent.value, unsent.serverValue, uid);
            unsent.flag = flagOf(flag);
            const auto told = flags.find(static_cast<std::uint32_t>(uid));
            if (told == flags.end()) continue;
            const auto name = serverNameOf(unsent.flag);
            const bool onServer = holds(told->second, name);
            if (onServer != unsent.value) {
                setFlag(told->second, name, unsent.value);
                isOther = true;
            }
            if (std::exchange(unsent.serverValue, onServer) != onServer) outdated.push_back(unsent);
        }
    }
    for (const auto& unsent : outdated) put(unsent);
    return isOther;
}

}
