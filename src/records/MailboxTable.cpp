#include "records/MailboxTable.h"

#include "records/StoreConnection.h"

#include <string_view>

namespace velmo {

namespace {

constexpr std::string_view selectOne =
    "SELECT accountID, path, name, delimiter, roleRaw, isSelectable, unreadCount, totalCount, uidValidity, uidNext, "
    "highestModSeq, oldestSyncedUID, lastSynced FROM mailboxes WHERE accountID = ? AND path = ?";
constexpr std::string_view selectAll =
    "SELECT accountID, path, name, delimiter, roleRaw, isSelectable, unreadCount, totalCount, uidValidity, uidNext, "
    "highestModSeq, oldestSyncedUID, lastSynced FROM mailboxes WHERE accountID = ? ORDER BY path";

MailboxRecord recordOf(const sqlite::Query& row) {
    MailboxRecord r;
    row.read(r.accountID, r.path, r.name, r.delimiter, r.roleRaw, r.isSelectable, r.unreadCount, r.totalCount,
             r.uidValidity, r.uidNext, r.highestModSeq, r.oldestSyncedUID, r.lastSynced);
    return r;
}

/// Whether anybody who looks at the mailbox list would see a difference; the numbers of the sync are for the sync.
bool looksDifferent(const MailboxRecord& a, const MailboxRecord& b) {
    return a.name != b.name || a.delimiter != b.delimiter || a.roleRaw != b.roleRaw ||
           a.isSelectable != b.isSelectable || a.unreadCount != b.unreadCount || a.totalCount != b.totalCount;
}

}

std::vector<MailboxRecord> MailboxTable::of(const UUID& accountID) {
    std::vector<MailboxRecord> records;
    auto row = connection_.query(selectAll);
    row.bind(accountID);
    while (row.step()) records.push_back(recordOf(row));
    return records;
}

std::optional<MailboxRecord> MailboxTable::find(const MailboxKey& key) {
    auto row = connection_.query(selectOne);
    row.bind(key.accountID, key.path);
    if (!row.step()) return std::nullopt;
    return recordOf(row);
}

bool MailboxTable::store(const MailboxRecord& r) {
    return connection_.write([&] {
        const auto held = find(r.key());
        if (held == r) return false;
        connection_
            .query("REPLACE INTO mailboxes (accountID, path, name, delimiter, roleRaw, isSelectable, unreadCount, "
                   "totalCount, uidValidity, uidNext, highestModSeq, oldestSyncedUID, lastSynced) "
                   "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
            .run(r.accountID, r.path, r.name, r.delimiter, r.roleRaw, r.isSelectable, r.unreadCount, r.totalCount,
                 r.uidValidity, r.uidNext, r.highestModSeq, r.oldestSyncedUID, r.lastSynced);
        if (!held || looksDifferent(*held, r)) connection_.noteMailboxList(r.accountID);
        return true;
    });
}

void MailboxTable::adjustUnreadCount(const MailboxKey& key, std::int64_t difference) {
    connection_.write([&] {
        connection_
            .query("UPDATE mailboxes SET unreadCount = max(0, unreadCount + ?1) "
                   "WHERE accountID = ?2 AND path = ?3 AND unreadCount <> max(0, unreadCount + ?1)")
            .run(difference, key.accountID, key.path);
        if (connection_.database().changedRows() > 0) connection_.noteMailboxList(key.accountID);
    });
}

void MailboxTable::remove(const MailboxKey& key) {
    connection_.write([&] {
        connection_.query("DELETE FROM mailboxes WHERE accountID = ? AND path = ?").run(key.accountID, key.path);
        connection_.noteMailboxList(key.accountID);
    });
}

void MailboxTable::removeAll(const UUID& accountID) {
    connection_.write([&] {
        connection_.query("DELETE FROM mailboxes WHERE accountID = ?").run(accountID);
        connection_.noteMailboxList(accountID);
    });
}

}
