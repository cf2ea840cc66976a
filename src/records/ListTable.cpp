#include "records/ListTable.h"

#include "records/StoreConnection.h"

#include <algorithm>

namespace velmo {

namespace {

constexpr std::string_view byID =
    "SELECT id, date, accountID, mailboxPath, isSeen, isOther, labelsJoined, threadKey FROM messages WHERE id = ?";
constexpr std::string_view byThread =
    "SELECT id, date, accountID, mailboxPath, isSeen, isOther, labelsJoined, threadKey FROM messages "
    "WHERE accountID = ? AND threadKey = ? ORDER BY date DESC, id DESC LIMIT ?";
constexpr std::string_view newerInThread =
    "SELECT id, date, accountID, mailboxPath, isSeen, isOther, labelsJoined, threadKey FROM messages "
    "WHERE accountID = ? AND threadKey = ? AND date >= ? ORDER BY date, id";

ListedMessage listedOf(const sqlite::Query& row) {
    ListedMessage m;
    row.read(m.place.id, m.place.date, m.mailbox.accountID, m.mailbox.path, m.isSeen, m.isOther, m.labelsJoined,
             m.threadKey);
    return m;
}

}

std::optional<ListedMessage> ListTable::find(std::int64_t id) {
    auto row = connection_.query(byID);
    row.bind(id);
    if (!row.step()) return std::nullopt;
    return listedOf(row);
}

std::vector<ListedMessage> ListTable::thread(const UUID& accountID, std::string_view threadKey, std::size_t limit) {
    std::vector<ListedMessage> found;
    auto row = connection_.query(byThread);
    row.bind(accountID, threadKey, static_cast<std::int64_t>(limit));
    while (row.step()) found.push_back(listedOf(row));
    return found;
}

bool ListTable::hasNewerInThread(const ListedMessage& message,
                                 const std::function<bool(const ListedMessage&)>& accepts) {
    auto row = connection_.query(newerInThread);
    row.bind(message.mailbox.accountID, message.threadKey, message.place.date);
    while (row.step()) {
        const auto newer = listedOf(row);
        if (message.place < newer.place && accepts(newer)) return true;
    }
    return false;
}

std::vector<std::int64_t> ListTable::idsOf(std::vector<std::string> messageIDs) {
    std::vector<std::int64_t> ids;
    // Neighbours in the index are found on the same page of it.
    std::ranges::sort(messageIDs);
    auto row = connection_.query("SELECT id FROM messages WHERE messageID = ?");
    for (const auto& messageID : messageIDs) {
        row.bind(messageID);
        while (row.step()) ids.push_back(row.column<std::int64_t>(0));
    }
    return ids;
}

}
