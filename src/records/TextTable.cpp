#include "records/TextTable.h"

#include "records/StoreConnection.h"

#include <algorithm>

namespace velmo {

namespace {

/// Shorter Latin words begin too many others: finding all of them costs more than looking through the list.
constexpr std::size_t shortestSelective = 3;

/// An index with fewer stale entries than this is kept as it is.
constexpr std::int64_t fewStaleEntries = 5'000;

bool isSelective(const std::string& word) {
    return word.size() >= shortestSelective; // a letter of another script takes two bytes or three
}

/// In FTS5 syntax: every word as a prefix, all of them required. The words hold no character of that syntax.
std::string expression(const SearchTerms& terms) {
    std::string text;
    for (const auto& word : terms.words()) {
        if (!isSelective(word)) continue;
        if (!text.empty()) text += ' ';
        text += '"' + word + "\"*";
    }
    return text;
}

}

bool TextTable::matches(std::int64_t id, const SearchTerms& terms) {
    std::string ignored;
    return matches(id, terms, ignored);
}

bool TextTable::matches(std::int64_t id, const SearchTerms& terms, std::string& messageID) {
    messageID.clear();
    auto row = connection_.query("SELECT fromName, fromEmail, subject, snippet, messageID FROM messages WHERE id = ?");
    row.bind(id);
    if (!row.step()) return false;
    SearchTerms::Match match(terms);
    for (int column = 0; column < 4; ++column) {
        if (match.add(row.column<std::string_view>(column))) return true;
    }
    messageID = row.column<std::string>(4);
    return false;
}

std::optional<std::vector<std::int64_t>> TextTable::search(const SearchTerms& terms, std::size_t limit) {
    const auto wanted = expression(terms);
    if (wanted.empty()) return std::nullopt;
    std::vector<std::int64_t> ids;
    auto row = connection_.query("SELECT rowid FROM messageTexts WHERE messageTexts MATCH ?");
    row.bind(wanted);
    while (row.step()) {
        if (ids.size() == limit) return std::nullopt;
        ids.push_back(row.column<std::int64_t>(0));
    }
    return ids;
}

std::vector<std::int64_t> TextTable::unindexed(std::size_t limit) {
    std::vector<std::int64_t> ids;
    auto row = connection_.query("SELECT id FROM messages WHERE id > (SELECT upTo FROM messageTextsState) "
                                 "ORDER BY id DESC LIMIT ?");
    row.bind(static_cast<std::int64_t>(limit));
    while (row.step()) ids.push_back(row.column<std::int64_t>(0));
    return ids;
}

std::size_t TextTable::indexNext(std::size_t limit) {
    const auto rows = static_cast<std::int64_t>(limit);
    if (unindexed(1).empty()) return 0;
    connection_.write([&] {
        connection_
            .query("INSERT INTO messageTexts (rowid, fromName, fromEmail, subject, snippet) "
                   "SELECT id, fromName, fromEmail, subject, snippet FROM messages "
                   "WHERE id > (SELECT upTo FROM messageTextsState) ORDER BY id LIMIT ?")
            .run(rows);
        connection_
            .query("UPDATE messageTextsState SET (upTo, entries) = "
                   "(SELECT max(id), entries + count(*) FROM (SELECT id FROM messages WHERE id > upTo "
                   "ORDER BY id LIMIT ?))")
            .run(rows);
    });
    return unindexed(limit).size();
}

void TextTable::dropStaleIndex() {
    std::int64_t upTo = 0, entries = 0, held = 0;
    {
        auto state = connection_.query("SELECT upTo, entries FROM messageTextsState");
        if (state.step()) state.read(upTo, entries);
        auto count = connection_.query("SELECT count(*) FROM messages WHERE id <= ?");
        count.bind(upTo);
        if (count.step()) count.read(held);
    }
    if (entries - held < std::max(held, fewStaleEntries)) return;
    connection_.write([&] {
        connection_.query("INSERT INTO messageTexts (messageTexts) VALUES ('delete-all')").run();
        connection_.query("UPDATE messageTextsState SET upTo = 0, entries = 0").run();
    });
}

}
