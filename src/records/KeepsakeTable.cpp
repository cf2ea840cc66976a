#include "records/KeepsakeTable.h"

#include "records/MessageTable.h"
#include "records/StoreConnection.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace velmo {

namespace {

constexpr std::string_view columns =
    "id, accountID, mailboxPath, uidValidity, uid, hasBody, snippet, categoryRaw, labelsJoined, summary, translation, "
    "translationLanguage, isSeen, isFlagged";

Keepsake keepsakeOf(const sqlite::Query& row) {
    Keepsake k;
    row.read(k.id, k.place.accountID, k.place.mailboxPath, k.place.uidValidity, k.place.uid, k.hasBody, k.snippet,
             k.categoryRaw, k.labelsJoined, k.summary, k.translation, k.translationLanguage, k.isSeen, k.isFlagged);
    return k;
}

std::string selectKeepsakes(std::string_view rest) {
    return "SELECT " + std::string(columns) + " FROM keepsakes " + std::string(rest);
}

/// Keeps messages that fulfil a condition; its first values are those of the target, and the time.
std::string insertFrom(std::string_view condition) {
    return "INSERT INTO keepsakes (accountID, mailboxPath, uid, uidValidity, messageID, date, size, fromEmail, "
           "subject, hasBody, snippet, categoryRaw, labelsJoined, summary, translation, translationLanguage, isSeen, "
           "isFlagged, targetPath, targetUIDValidity, targetUID, targetFrom, keptAt) "
           "SELECT accountID, mailboxPath, uid, uidValidity, ifnull(messageID, ''), date, size, fromEmail, subject, "
           "hasBody, snippet, categoryRaw, labelsJoined, summary, translation, translationLanguage, "
           "(SELECT value FROM unsentFlags WHERE message = m.id AND flag = 0), "
           "(SELECT value FROM unsentFlags WHERE message = m.id AND flag = 1), ?, ?, ?, ?, ? FROM messages m WHERE " +
           std::string(condition) + " RETURNING " + std::string(columns);
}

}

Keepsake Keepsake::of(const MessageRecord& record) {
    Keepsake k;
    k.place = BodyKey::of(record);
    k.hasBody = record.hasBody;
    k.snippet = record.snippet;
    k.categoryRaw = record.categoryRaw;
    k.labelsJoined = record.labelsJoined;
    k.summary = record.summary;
    k.translation = record.translation;
    k.translationLanguage = record.translationLanguage;
    return k;
}

void Keepsake::giveTo(MessageRecord& record) const {
    if (!snippet.empty()) record.snippet = snippet;
    record.categoryRaw = categoryRaw;
    record.labelsJoined = labelsJoined;
    record.summary = summary;
    record.translation = translation;
    record.translationLanguage = translationLanguage;
}

std::optional<Keepsake> KeepsakeTable::keep(std::int64_t message, Date now, const std::optional<Target>& target) {
    static const std::string sql = insertFrom("id = ? AND (? OR ifnull(messageID, '') <> '')");
    return connection_.write([&] {
        std::optional<std::string> path;
        std::optional<std::int64_t> uidValidity, uid, from;
        if (target) {
            path = target->path;
            uidValidity = target->uidValidity;
            uid = target->uid;
            from = target->from;
        }
        std::optional<Keepsake> kept;
        auto row = connection_.query(sql);
        row.bind(path, uidValidity, uid, from, now, message, target.has_value());
        while (row.step()) kept = keepsakeOf(row);
        return kept;
    });
}

std::vector<Keepsake> KeepsakeTable::keepAll(const MailboxKey& mailbox, Date now) {
    static const std::string sql = insertFrom("accountID = ? AND mailboxPath = ? AND ifnull(messageID, '') <> ''");
    return connection_.write([&] {
        std::vector<Keepsake> kept;
        auto row = connection_.query(sql);
        row.bind(std::nullopt, std::nullopt, std::nullopt, std::nullopt, now, mailbox.accountID, mailbox.path);
        while (row.step()) kept.push_back(keepsakeOf(row));
        return kept;
    });
}

KeepsakeTable::Expected KeepsakeTable::expectedIn(const MailboxKey& mailbox) {
    Expected expected;
    auto row = connection_.query("SELECT targetUIDValidity, targetUID, ifnull(targetFrom, 0) FROM keepsakes "
                                 "WHERE accountID = ? AND targetPath = ? ORDER BY id");
    row.bind(mailbox.accountID, mailbox.path);
    while (row.step()) {
        std::int64_t uidValidity = 0;
        std::int64_t from = 0;
        std::optional<std::int64_t> uid;
        row.read(uidValidity, uid, from);
        if (uidValidity != expected.uidValidity) expected = {{}, 0, uidValidity};
        if (uid && std::in_range<std::uint32_t>(*uid)) expected.uids.push_back(static_cast<std::uint32_t>(*uid));
        if (uid || from == 0 || !std::in_range<std::uint32_t>(from)) continue;
        const auto first = static_cast<std::uint32_t>(from);
        expected.from = expected.from == 0 ? first : std::min(expected.from, first);
    }
    std::ranges::sort(expected.uids);
    return expected;
}

std::optional<Keepsake> KeepsakeTable::take(const MessageRecord& record) {
    static const std::string byTarget =
        selectKeepsakes("WHERE accountID = ? AND targetPath = ? AND targetUID = ? AND targetUIDValidity = ? LIMIT 1");
    static const std::string byMessageID =
        selectKeepsakes("WHERE accountID = ? AND messageID = ? AND date = ? AND size = ? AND fromEmail = ? "
                        "AND subject = ? AND ? <> '' ORDER BY id LIMIT 1");
    return connection_.write([&] {
        std::optional<Keepsake> found;
        {
            auto row = connection_.query(byTarget);
            row.bind(record.accountID, record.mailboxPath, record.uid, record.uidValidity);
            while (row.step()) found = keepsakeOf(row);
        }
        if (!found) {
            const std::string messageID = record.messageID.value_or("");
            auto row = connection_.query(byMessageID);
            row.bind(record.accountID, messageID, record.date, record.size, record.fromEmail, record.subject,
                     messageID);
            while (row.step()) found = keepsakeOf(row);
        }
        if (found) connection_.query("DELETE FROM keepsakes WHERE id = ?").run(found->id);
        return found;
    });
}

std::optional<Keepsake> KeepsakeTable::copyOf(const MessageRecord& record) {
    if (record.messageID.value_or("").empty()) return std::nullopt;
    // The plus leaves the look-up to the index of Message-IDs.
    auto row = connection_.query(
        "SELECT id FROM messages WHERE messageID = ? AND +accountID = ? AND +date = ? AND size = ? AND fromEmail = ? "
        "AND subject = ? AND +mailboxPath <> ? ORDER BY hasBody DESC LIMIT 1");
    row.bind(*record.messageID, record.accountID, record.date, record.size, record.fromEmail, record.subject,
             record.mailboxPath);
    if (!row.step()) return std::nullopt;
    const auto held = MessageTable(connection_).find(row.column<std::int64_t>(0));
    return held ? std::optional(Keepsake::of(*held)) : std::nullopt;
}

std::vector<Keepsake> KeepsakeTable::expire(Date before) {
    static const std::string sql = selectKeepsakes("WHERE keptAt < ?");
    std::vector<Keepsake> gone;
    {
        auto row = connection_.query(sql);
        row.bind(before);
        while (row.step()) gone.push_back(keepsakeOf(row));
    }
    if (!gone.empty()) connection_.query("DELETE FROM keepsakes WHERE keptAt < ?").run(before);
    return gone;
}

bool KeepsakeTable::isEmpty() {
    auto row = connection_.query("SELECT 1 FROM keepsakes LIMIT 1");
    return !row.step();
}

void KeepsakeTable::removeAll(const UUID& accountID) {
    connection_.query("DELETE FROM keepsakes WHERE accountID = ?").run(accountID);
}

}
