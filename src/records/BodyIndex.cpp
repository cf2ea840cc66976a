#include "records/BodyIndex.h"

#include "base/Text.h"
#include "platform/Directories.h"
#include "platform/FileError.h"
#include "platform/Letters.h"
#include "platform/Log.h"
#include "platform/SQLite.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <optional>
#include <thread>

namespace velmo {

namespace {

constexpr std::size_t mostTerms = 8;
constexpr int removalStep = 50;

// The two tables share their row numbers.
constexpr std::array schema{
    "CREATE TABLE IF NOT EXISTS docs (id INTEGER PRIMARY KEY, message_id TEXT NOT NULL UNIQUE, account TEXT NOT NULL)",
    "CREATE INDEX IF NOT EXISTS docs_account ON docs(account)",
    "CREATE VIRTUAL TABLE IF NOT EXISTS bodies USING fts5(body, tokenize='unicode61 remove_diacritics 2')"};

/// Each word as a quoted prefix; all of them are required. Nothing of the query's syntax survives the splitting.
std::string matchExpression(std::string_view words) {
    const std::string text = text::repairedUTF8(words);
    std::string expression;
    std::size_t terms = 0;
    std::size_t start = 0;
    const auto endWord = [&](std::size_t end) {
        if (end == start || terms == mostTerms) return;
        expression += terms++ == 0 ? "\"" : " \"";
        expression.append(text, start, end - start);
        expression += "\"*";
    };
    for (std::size_t next = 0; next < text.size() && terms < mostTerms;) {
        const std::size_t here = next;
        if (isAlphanumeric(text::nextCodePoint(text, next))) continue;
        endWord(here);
        start = next;
    }
    endWord(text.size());
    return expression;
}

/// SQLite's name of a database in memory is no file to be made first.
std::unique_ptr<sqlite::Database> openDatabase(const std::filesystem::path& file) {
    sqlite::DatabaseOptions options;
    if (file.empty()) {
        options.access = sqlite::DatabaseOptions::Access::readWrite;
        return std::make_unique<sqlite::Database>(":memory:", options);
    }
    try {
        makePrivateDirectory(file.parent_path());
    } catch (const FileError& error) {
        log("Mail").error("Couldn't make the directory of the body index: {}", pub(error.sentence()));
    }
    return std::make_unique<sqlite::Database>(file, options);
}

}

struct BodyIndex::State {
    struct Search {
        std::string expression;
        std::int64_t version = 0;
        std::vector<std::string> messageIDs;
    };

    /// Runs `work` on the open database, alone. What it throws ends here; `otherwise` is the answer then.
    template <class Result, class Work>
    Result attempt(Result otherwise, Work work) {
        const std::lock_guard guard(mutex);
        if (!database) return otherwise;
        try {
            return work();
        } catch (const sqlite::SQLiteError& error) {
            log("Mail").error("The body index refused: {}", pub(error.detail()));
            ++refusals;
            return otherwise;
        }
    }

    bool insert(std::string_view messageID, const std::string& account, std::string_view body);
    bool removeSome(const std::string& account, std::int64_t& last);
    std::vector<std::string> matches(const std::string& expression);

    std::filesystem::path file;
    std::mutex mutex; // guards what follows
    std::unique_ptr<sqlite::Database> database;
    std::int64_t version = 0;
    std::int64_t refusals = 0;
    std::optional<Search> lastSearch;
};

BodyIndex::BodyIndex(const std::filesystem::path& file) : state_(std::make_unique<State>()) {
    state_->file = file;
    try {
        state_->database = openDatabase(file);
    } catch (const sqlite::SQLiteError& error) {
        log("Mail").error("Couldn't open the body index: {}", pub(error.detail()));
    }
    for (const char* statement : schema) {
        state_->attempt(false, [&] {
            state_->database->execute(statement);
            return true;
        });
    }
}

BodyIndex::~BodyIndex() = default;

// --- Documents -------------------------------------------------------------------------------------------------

bool BodyIndex::State::insert(std::string_view messageID, const std::string& account, std::string_view body) {
    database->query("INSERT OR IGNORE INTO docs (message_id, account) VALUES (?, ?)").run(messageID, account);
    if (database->changedRows() < 1) return false;
    database->query("INSERT INTO bodies (rowid, body) VALUES (?, ?)").run(database->lastInsertID(), body);
    return true;
}

bool BodyIndex::add(std::string_view messageID, const UUID& account, std::string_view body) {
    return state_->attempt(false, [&] {
        sqlite::Transaction transaction(*state_->database);
        const bool isNew = state_->insert(messageID, account.text(), body);
        transaction.commit();
        if (isNew) ++state_->version;
        return isNew;
    });
}

std::size_t BodyIndex::add(const std::vector<Document>& documents, const UUID& account) {
    if (documents.empty()) return 0;
    return state_->attempt(std::size_t{0}, [&] {
        const std::string accountText = account.text();
        sqlite::Transaction transaction(*state_->database);
        const auto isNew = [&](const Document& one) { return state_->insert(one.messageID, accountText, one.body); };
        const auto added = static_cast<std::size_t>(std::ranges::count_if(documents, isNew));
        transaction.commit();
        if (added > 0) ++state_->version;
        return added;
    });
}

void BodyIndex::removeAccount(const UUID& account) {
    // Searches get their turn between the steps.
    std::int64_t last = 0;
    while (state_->attempt(false, [&] { return state_->removeSome(account.text(), last); })) std::this_thread::yield();
}

/// Removes the next documents of the account behind `last`, and moves that on; false when there were none.
bool BodyIndex::State::removeSome(const std::string& account, std::int64_t& last) {
    sqlite::Transaction transaction(*database);
    std::vector<std::int64_t> ids;
    {
        auto row = database->query("SELECT id FROM docs WHERE account = ? AND id > ? ORDER BY id LIMIT ?");
        row.bind(account, last, removalStep);
        while (row.step()) ids.push_back(row.column<std::int64_t>(0));
    }
    for (const auto id : ids) {
        database->query("DELETE FROM bodies WHERE rowid = ?").run(id);
        database->query("DELETE FROM docs WHERE id = ?").run(id);
    }
    transaction.commit();
    if (ids.empty()) return false;
    last = ids.back();
    ++version;
    return true;
}

// --- Answers ---------------------------------------------------------------------------------------------------

std::vector<std::string> BodyIndex::State::matches(const std::string& expression) {
    std::vector<std::string> found;
    auto row = database->query("SELECT docs.message_id FROM bodies JOIN docs ON docs.id = bodies.rowid "
                               "WHERE bodies MATCH ? LIMIT 2000");
    row.bind(expression);
    while (row.step()) {
        if (auto messageID = row.column<std::optional<std::string>>(0)) found.push_back(std::move(*messageID));
    }
    return found;
}

std::vector<std::string> BodyIndex::search(std::string_view text) {
    const std::string expression = matchExpression(text);
    if (expression.empty()) return {};
    return state_->attempt(std::vector<std::string>(), [&] {
        auto& last = state_->lastSearch;
        // Lists ask the same again at every change of what they show.
        if (!last || last->expression != expression || last->version != state_->version)
            last = State::Search{expression, state_->version, state_->matches(expression)};
        return last->messageIDs;
    });
}

std::set<std::string> BodyIndex::allMessageIDs() {
    return state_->attempt(std::set<std::string>(), [&] {
        std::set<std::string> all;
        // The rows come in the order of the set.
        auto row = state_->database->query("SELECT message_id FROM docs ORDER BY message_id");
        while (row.step()) all.insert(all.end(), row.column<std::string>(0));
        return all;
    });
}

std::int64_t BodyIndex::version() const {
    const std::lock_guard guard(state_->mutex);
    return state_->version;
}

std::int64_t BodyIndex::refusals() const {
    const std::lock_guard guard(state_->mutex);
    return state_->refusals;
}

std::int64_t BodyIndex::fileSize() const {
    if (state_->file.empty()) return 0;
    std::int64_t total = 0;
    for (const char* ending : {"", "-wal", "-shm"}) {
        std::error_code error;
        const auto size = std::filesystem::file_size(state_->file.native() + ending, error);
        if (!error) total += static_cast<std::int64_t>(size);
    }
    return total;
}

}
