#include "records/MessageTable.h"

#include "records/JSONCells.h"
#include "records/MessageWalk.h"
#include "records/ModelContainer.h"
#include "records/StoreConnection.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace velmo {

namespace {

using sqlite::Query;

constexpr std::size_t longestThread = 500;

/// "SELECT" with every column in the order in which `recordOf` reads them, and what follows.
std::string selectMessages(std::string_view rest) {
    return "SELECT id, accountID, mailboxPath, uid, uidValidity, isSeen, isFlagged, isAnswered, isDraft, otherFlags, "
           "date, size, hasAttachments, hasInvite, hasBody, categoryRaw, labelsJoined, fromName, fromEmail, subject, "
           "snippet, messageID, inReplyTo, threadKey, \"references\", \"to\", cc, replyTo, attachments, summary, "
           "translation, translationLanguage FROM messages " +
           std::string(rest);
}

constexpr std::string_view insertMessage =
    "INSERT INTO messages (accountID, mailboxPath, uid, uidValidity, isSeen, isFlagged, isAnswered, isDraft, "
    "otherFlags, date, size, hasAttachments, hasInvite, hasBody, categoryRaw, labelsJoined, fromName, fromEmail, "
    "subject, snippet, messageID, inReplyTo, threadKey, \"references\", \"to\", cc, replyTo, attachments, summary, "
    "translation, translationLanguage) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
    "?, ?, ?, ?, ?, ?, ?)";

MessageRecord recordOf(const Query& row) {
    MessageRecord r;
    std::string_view flags, references, to, cc, replyTo, attachments;
    row.read(r.id, r.accountID, r.mailboxPath, r.uid, r.uidValidity, r.isSeen, r.isFlagged, r.isAnswered, r.isDraft,
             flags, r.date, r.size, r.hasAttachments, r.hasInvite, r.hasBody, r.categoryRaw, r.labelsJoined, r.fromName,
             r.fromEmail, r.subject, r.snippet, r.messageID, r.inReplyTo, r.threadKey, references, to, cc, replyTo,
             attachments, r.summary, r.translation, r.translationLanguage);
    r.otherFlags = cells::texts(flags);
    r.references = cells::texts(references);
    r.to = cells::addresses(to);
    r.cc = cells::addresses(cc);
    r.replyTo = cells::addresses(replyTo);
    r.attachments = cells::attachments(attachments);
    return r;
}

void insertOne(Query& insert, const MessageRecord& r) {
    insert.run(r.accountID, r.mailboxPath, r.uid, r.uidValidity, r.isSeen, r.isFlagged, r.isAnswered, r.isDraft,
               cells::encode(r.otherFlags), r.date, r.size, r.hasAttachments, r.hasInvite, r.hasBody, r.categoryRaw,
               r.labelsJoined, r.fromName, r.fromEmail, r.subject, r.snippet, r.messageID, r.inReplyTo, r.threadKey,
               cells::encode(r.references), cells::encode(r.to), cells::encode(r.cc), cells::encode(r.replyTo),
               cells::encode(r.attachments), r.summary, r.translation, r.translationLanguage);
}

std::uint32_t checkedUID(std::int64_t uid) {
    if (uid < 0 || uid > std::numeric_limits<std::uint32_t>::max())
        throw ModelStoreError(ModelStoreError::Kind::brokenRecord);
    return static_cast<std::uint32_t>(uid);
}

std::string jsonList(std::span<const std::uint32_t> numbers) {
    std::string list = "[";
    std::array<char, 16> digits;
    for (const auto number : numbers) {
        if (list.size() > 1) list += ',';
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        list.append(digits.data(), end);
    }
    return list + ']';
}

std::int64_t countOf(Query row, const MailboxKey& mailbox) {
    row.bind(mailbox.accountID, mailbox.path);
    return row.step() ? row.column<std::int64_t>(0) : 0;
}

}

// --- Reading ---------------------------------------------------------------------------------------------------

std::vector<MessageRecord> MessageTable::page(const MessageListQuery& query) {
    MessageWalk walk(connection_, query);
    std::vector<std::int64_t> ids;
    while (ids.size() < query.limit) {
        const auto place = walk.next();
        if (!place) break;
        ids.push_back(place->id);
    }
    return find(ids);
}

std::int64_t MessageTable::count(const MailboxKey& mailbox) {
    return countOf(connection_.query("SELECT count(*) FROM messages WHERE accountID = ? AND mailboxPath = ?"), mailbox);
}

std::int64_t MessageTable::unseenCount(const MailboxKey& mailbox) {
    return countOf(
        connection_.query("SELECT count(*) FROM messages WHERE accountID = ? AND mailboxPath = ? AND isSeen = 0"),
        mailbox);
}

std::optional<MessageRecord> MessageTable::find(std::int64_t id) {
    auto found = find(std::span(&id, 1));
    if (found.empty()) return std::nullopt;
    return std::move(found.front());
}

std::optional<MessageRecord> MessageTable::find(const MailboxKey& mailbox, std::uint32_t uid) {
    static const std::string sql = selectMessages("WHERE accountID = ? AND mailboxPath = ? AND uid = ?");
    auto row = connection_.query(sql);
    row.bind(mailbox.accountID, mailbox.path, uid);
    if (!row.step()) return std::nullopt;
    return recordOf(row);
}

std::vector<MessageRecord> MessageTable::find(std::span<const std::int64_t> ids) {
    static const std::string sql = selectMessages("WHERE id = ?");
    std::vector<MessageRecord> records;
    records.reserve(ids.size());
    auto row = connection_.query(sql);
    for (const auto id : ids) {
        row.bind(id);
        while (row.step()) records.push_back(recordOf(row));
    }
    return records;
}

std::vector<MessageRecord> MessageTable::thread(const UUID& accountID, std::string_view threadKey) {
    static const std::string sql =
        selectMessages("WHERE accountID = ? AND threadKey = ? ORDER BY date DESC, id DESC LIMIT ?");
    std::vector<MessageRecord> records;
    auto row = connection_.query(sql);
    row.bind(accountID, threadKey, static_cast<std::int64_t>(longestThread));
    while (row.step()) records.push_back(recordOf(row));
    std::ranges::reverse(records);
    return records;
}

std::vector<MessageRecord> MessageTable::walk(std::int64_t after, std::size_t limit) {
    static const std::string sql = selectMessages("WHERE id > ? ORDER BY id LIMIT ?");
    std::vector<MessageRecord> records;
    auto row = connection_.query(sql);
    row.bind(after, static_cast<std::int64_t>(limit));
    while (row.step()) records.push_back(recordOf(row));
    return records;
}

std::vector<std::uint32_t> MessageTable::uids(const MailboxKey& mailbox) {
    std::vector<std::uint32_t> uids;
    auto row = connection_.query("SELECT uid FROM messages WHERE accountID = ? AND mailboxPath = ? ORDER BY uid");
    row.bind(mailbox.accountID, mailbox.path);
    while (row.step()) uids.push_back(checkedUID(row.column<std::int64_t>(0)));
    return uids;
}

std::vector<std::uint32_t> MessageTable::headless(const MailboxKey& mailbox, std::size_t limit) {
    std::vector<std::uint32_t> uids;
    auto row = connection_.query("SELECT uid FROM messages WHERE accountID = ? AND mailboxPath = ? AND size = 0 "
                                 "AND messageID IS NULL AND fromEmail = '' AND subject = '' ORDER BY uid LIMIT ?");
    row.bind(mailbox.accountID, mailbox.path, static_cast<std::int64_t>(limit));
    while (row.step()) uids.push_back(checkedUID(row.column<std::int64_t>(0)));
    return uids;
}

std::vector<StoredFlags> MessageTable::flags(const MailboxKey& mailbox, std::span<const std::uint32_t> uids) {
    std::vector<StoredFlags> found;
    if (uids.empty()) return found;
    auto row = connection_.query("SELECT id, uid, isSeen, isFlagged, isAnswered, isDraft, otherFlags FROM messages "
                                 "WHERE accountID = ? AND mailboxPath = ? AND uid IN (SELECT value FROM json_each(?))");
    row.bind(mailbox.accountID, mailbox.path, jsonList(uids));
    while (row.step()) {
        auto& [id, uid, flags] = found.emplace_back();
        std::int64_t storedUID = 0;
        std::string_view others;
        row.read(id, storedUID, flags.isSeen, flags.isFlagged, flags.isAnswered, flags.isDraft, others);
        uid = checkedUID(storedUID);
        flags.otherFlags = cells::texts(others);
    }
    return found;
}

std::vector<CategorisedMessage> MessageTable::categorised(std::int64_t after, std::size_t limit) {
    std::vector<CategorisedMessage> found;
    auto row = connection_.query("SELECT id, categoryRaw, labelsJoined FROM messages "
                                 "WHERE id > ? AND categoryRaw <> '' ORDER BY id LIMIT ?");
    row.bind(after, static_cast<std::int64_t>(limit));
    while (row.step()) {
        auto& message = found.emplace_back();
        row.read(message.id, message.categoryRaw, message.labelsJoined);
    }
    return found;
}

// --- Writing ---------------------------------------------------------------------------------------------------

void MessageTable::insert(std::span<MessageRecord> records) {
    connection_.write([&] {
        auto statement = connection_.query(insertMessage);
        const MessageRecord* previous = nullptr;
        for (auto& record : records) {
            insertOne(statement, record);
            record.id = connection_.database().lastInsertID();
            if (previous == nullptr || previous->mailboxPath != record.mailboxPath ||
                previous->accountID != record.accountID)
                connection_.noteMessages(record.mailboxKey());
            previous = &record;
        }
    });
}

bool MessageTable::change(std::int64_t id, const MessageChange& change) {
    return connection_.write([&] {
        const auto held = find(id);
        if (!held) return false;
        bool isChanged = false;
        const auto set = [&](std::string_view column, const auto& wanted, const auto& present) {
            if (!wanted || *wanted == present) return;
            connection_.query("UPDATE messages SET " + std::string(column) + " = ? WHERE id = ?").run(*wanted, id);
            isChanged = true;
        };
        set("isSeen", change.isSeen, held->isSeen);
        set("isFlagged", change.isFlagged, held->isFlagged);
        set("isAnswered", change.isAnswered, held->isAnswered);
        set("hasBody", change.hasBody, held->hasBody);
        set("snippet", change.snippet, held->snippet);
        set("categoryRaw", change.categoryRaw, held->categoryRaw);
        set("labelsJoined", change.labelsJoined, held->labelsJoined);
        set("summary", change.summary, held->summary);
        set("translation", change.translation, held->translation);
        set("translationLanguage", change.translationLanguage, held->translationLanguage);
        if (isChanged) connection_.noteMessages(held->mailboxKey());
        return isChanged;
    });
}

void MessageTable::setFlags(const MailboxKey& mailbox, std::int64_t id, const MessageFlags& flags) {
    connection_.write([&] {
        connection_
            .query("UPDATE messages SET isSeen = ?, isFlagged = ?, isAnswered = ?, isDraft = ?, otherFlags = ? "
                   "WHERE id = ?")
            .run(flags.isSeen, flags.isFlagged, flags.isAnswered, flags.isDraft, cells::encode(flags.otherFlags), id);
        connection_.noteMessages(mailbox);
    });
}

void MessageTable::remove(const MailboxKey& mailbox, std::span<const std::int64_t> ids) {
    if (ids.empty()) return;
    connection_.write([&] {
        auto statement = connection_.query("DELETE FROM messages WHERE id = ?");
        for (const auto id : ids) statement.run(id);
        connection_.noteMessages(mailbox);
    });
}

void MessageTable::removeAll(const MailboxKey& mailbox) {
    connection_.write([&] {
        connection_.query("DELETE FROM messages WHERE accountID = ? AND mailboxPath = ?")
            .run(mailbox.accountID, mailbox.path);
        connection_.noteMessages(mailbox);
    });
}

void MessageTable::removeAll(const UUID& accountID) {
    connection_.write([&] {
        {
            auto row = connection_.query("SELECT path FROM mailboxes WHERE accountID = ?");
            row.bind(accountID);
            while (row.step()) connection_.noteMessages({accountID, row.column<std::string>(0)});
        }
        connection_.query("DELETE FROM messages WHERE accountID = ?").run(accountID);
    });
}

}
