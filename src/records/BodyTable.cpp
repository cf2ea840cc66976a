#include "records/BodyTable.h"

#include "records/StoreConnection.h"

#include <algorithm>

namespace velmo {

namespace {

std::string selectRows(std::string_view rest) {
    return "SELECT id, accountID, mailboxPath, uid, uidValidity, messageID, date, size FROM messages " +
           std::string(rest);
}

void appendRows(sqlite::Query& row, std::vector<BodyRow>& rows) {
    while (row.step()) {
        BodyRow& one = rows.emplace_back();
        row.read(one.id, one.key.accountID, one.key.mailboxPath, one.key.uid, one.key.uidValidity, one.messageID,
                 one.date, one.size);
    }
}

/// Dates are whole milliseconds.
Date firstDate(const std::optional<Date>& youngerThan) {
    return youngerThan ? *youngerThan + Duration(1) : Date::min();
}

}

// The literal "hasBody = 0" is the condition of a partial index.

std::vector<BodyRow> BodyTable::missing(const Missing& query, std::size_t limit) {
    static const std::string sql = selectRows("WHERE accountID = ? AND mailboxPath = ? AND hasBody = 0 AND date >= ? "
                                              "ORDER BY date DESC, id DESC LIMIT ?");
    std::vector<BodyRow> rows;
    auto row = connection_.query(sql);
    for (const auto& path : query.paths) {
        row.bind(query.accountID, path, firstDate(query.youngerThan), static_cast<std::int64_t>(limit));
        appendRows(row, rows);
    }
    const auto newest = [](const BodyRow& a, const BodyRow& b) {
        return std::pair(a.date, a.id) > std::pair(b.date, b.id);
    };
    std::ranges::sort(rows, newest);
    if (rows.size() > limit) rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(limit), rows.end());
    return rows;
}

std::int64_t BodyTable::missingCount(const Missing& query) {
    std::int64_t count = 0;
    auto row = connection_.query(
        "SELECT count(*) FROM messages WHERE accountID = ? AND mailboxPath = ? AND hasBody = 0 AND date >= ?");
    for (const auto& path : query.paths) {
        row.bind(query.accountID, path, firstDate(query.youngerThan));
        while (row.step()) count += row.column<std::int64_t>(0);
    }
    return count;
}

std::int64_t BodyTable::heldCount(const UUID& accountID) {
    auto row = connection_.query("SELECT (SELECT count(*) FROM messages WHERE accountID = ?) - "
                                 "(SELECT count(*) FROM messages WHERE accountID = ? AND hasBody = 0)");
    row.bind(accountID, accountID);
    return row.step() ? row.column<std::int64_t>(0) : 0;
}

std::vector<BodyRow> BodyTable::held(const UUID& accountID, std::int64_t after, std::size_t limit) {
    // A walk along the rows; the plus keeps SQLite from sorting what an index of the account gives.
    static const std::string sql = selectRows("WHERE id > ? AND +accountID = ? AND hasBody = 1 ORDER BY id LIMIT ?");
    std::vector<BodyRow> rows;
    auto row = connection_.query(sql);
    row.bind(after, accountID, static_cast<std::int64_t>(limit));
    appendRows(row, rows);
    return rows;
}

std::vector<BodyRow> BodyTable::oldestHeld(std::size_t limit) {
    static const std::string sql = selectRows("WHERE hasBody = 1 ORDER BY date, id LIMIT ?");
    std::vector<BodyRow> rows;
    auto row = connection_.query(sql);
    row.bind(static_cast<std::int64_t>(limit));
    appendRows(row, rows);
    return rows;
}

bool BodyTable::record(const BodyRow& row, const Outcome& outcome) {
    return connection_.write([&] {
        bool hadBody = false;
        std::string snippet;
        {
            auto held = connection_.query("SELECT hasBody, snippet FROM messages WHERE id = ? AND mailboxPath = ? "
                                          "AND uid = ? AND uidValidity = ?");
            held.bind(row.id, row.key.mailboxPath, row.key.uid, row.key.uidValidity);
            if (!held.step()) return false;
            held.read(hadBody, snippet);
        }
        const std::string& wanted = outcome.snippet ? *outcome.snippet : snippet;
        if (hadBody == outcome.hasBody && snippet == wanted) return true;
        connection_.query("UPDATE messages SET hasBody = ?, snippet = ? WHERE id = ?")
            .run(outcome.hasBody, wanted, row.id);
        connection_.noteMessages({row.key.accountID, row.key.mailboxPath});
        return true;
    });
}

}
