#include "platform/SQLite.h"

#include "base/Localisation.h"
#include "platform/FileDescriptor.h"

#include <fcntl.h>
#include <limits>
#include <sqlite3.h>

namespace velmo::sqlite {

namespace {

SQLiteError::Kind kindOf(int code) {
    switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED: return SQLiteError::Kind::busy;
    case SQLITE_FULL: return SQLiteError::Kind::full;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB: return SQLiteError::Kind::corrupt;
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_AUTH: return SQLiteError::Kind::cannotOpen;
    case SQLITE_READONLY: return SQLiteError::Kind::readOnly;
    case SQLITE_CONSTRAINT: return SQLiteError::Kind::constraint;
    case SQLITE_IOERR: return SQLiteError::Kind::io;
    default: return SQLiteError::Kind::other;
    }
}

std::string sentence(int code) {
    switch (kindOf(code)) {
    case SQLiteError::Kind::busy: return tr("A data file is in use by another program. Try again in a moment.");
    case SQLiteError::Kind::full: return tr("The disk is full. Free some space and try again.");
    case SQLiteError::Kind::corrupt: return tr("A data file is damaged.");
    case SQLiteError::Kind::cannotOpen: return tr("A data file couldn't be opened.");
    case SQLiteError::Kind::readOnly: return tr("A data file can't be written, because it is read-only.");
    case SQLiteError::Kind::io: return tr("A data file couldn't be read or written. The disk may be failing.");
    case SQLiteError::Kind::constraint:
    case SQLiteError::Kind::other: break;
    }
    return tr("The database refused an operation (code {}).", code);
}

/// SQLite creates files with the umask's mode, and its log and index take over the mode of the database; so the
/// database is made here first. An existing file is left alone, and a failure is SQLite's to report.
void createPrivately(const std::filesystem::path& file) {
    const FileDescriptor made(::open(file.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
}

int openFlags(DatabaseOptions::Access access) {
    constexpr int common = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    switch (access) {
    case DatabaseOptions::Access::readOnly: return common | SQLITE_OPEN_READONLY;
    case DatabaseOptions::Access::readWrite: return common | SQLITE_OPEN_READWRITE;
    case DatabaseOptions::Access::create: break;
    }
    return common | SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
}

std::string pragmas(const DatabaseOptions& options) {
    std::string sql = "PRAGMA page_size=8192;";
    if (options.access != DatabaseOptions::Access::readOnly)
        sql += options.journal == DatabaseOptions::Journal::writeAhead ? "PRAGMA journal_mode=WAL;"
                                                                       : "PRAGMA journal_mode=DELETE;";
    switch (options.durability) {
    case DatabaseOptions::Durability::off: sql += "PRAGMA synchronous=OFF;"; break;
    case DatabaseOptions::Durability::normal: sql += "PRAGMA synchronous=NORMAL;"; break;
    case DatabaseOptions::Durability::full: sql += "PRAGMA synchronous=FULL;"; break;
    }
    // After a large commit the log shrinks again; 64 MiB is far beyond what a common one needs.
    return sql + "PRAGMA journal_size_limit=67108864;PRAGMA wal_autocheckpoint=4000;PRAGMA temp_store=MEMORY;PRAGMA "
                 "cache_size=-8000;";
}

constexpr const char* notNull(const char* data) {
    // A null pointer would bind NULL; an empty text is not that.
    return data != nullptr ? data : "";
}

}

SQLiteError::SQLiteError(int code, std::string detail)
    : UserError(velmo::sqlite::sentence(code)), kind_(kindOf(code)), code_(code), detail_(std::move(detail)) {}

// --- Query -----------------------------------------------------------------------------------------------------

Query::Query(Query&& other) noexcept
    : database_(other.database_), sql_(other.sql_), statement_(std::exchange(other.statement_, nullptr)) {}

Query::~Query() {
    if (statement_ == nullptr) return;
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
    database_->giveBack(sql_, statement_);
}

bool Query::step() {
    const int code = sqlite3_step(statement_);
    if (code == SQLITE_ROW) return true;
    sqlite3_reset(statement_);
    if (code != SQLITE_DONE) database_->fail(code);
    return false;
}

void Query::finish() {
    const int code = sqlite3_step(statement_);
    sqlite3_reset(statement_);
    // The values were borrowed; nothing may point to them any longer.
    sqlite3_clear_bindings(statement_);
    if (code != SQLITE_DONE && code != SQLITE_ROW) database_->fail(code);
}

void Query::bindNull(int index) {
    if (const int code = sqlite3_bind_null(statement_, index); code != SQLITE_OK) database_->fail(code);
}

void Query::bindInteger(int index, std::int64_t value) {
    if (const int code = sqlite3_bind_int64(statement_, index, value); code != SQLITE_OK) database_->fail(code);
}

void Query::bindDouble(int index, double value) {
    if (const int code = sqlite3_bind_double(statement_, index, value); code != SQLITE_OK) database_->fail(code);
}

void Query::bindText(int index, std::string_view text, Lifetime lifetime) {
    const int code = sqlite3_bind_text64(statement_, index, notNull(text.data()), text.size(),
                                         lifetime == Lifetime::copied ? SQLITE_TRANSIENT : SQLITE_STATIC, SQLITE_UTF8);
    if (code != SQLITE_OK) database_->fail(code);
}

void Query::bindBlob(int index, BytesView bytes, Lifetime lifetime) {
    const int code = sqlite3_bind_blob64(statement_, index, notNull(bytes.data()), bytes.size(),
                                         lifetime == Lifetime::copied ? SQLITE_TRANSIENT : SQLITE_STATIC);
    if (code != SQLITE_OK) database_->fail(code);
}

void Query::bindOne(int index, const UUID& value, Lifetime lifetime) {
    const auto& octets = value.octets();
    const int code = sqlite3_bind_blob64(statement_, index, octets.data(), octets.size(),
                                         lifetime == Lifetime::copied ? SQLITE_TRANSIENT : SQLITE_STATIC);
    if (code != SQLITE_OK) database_->fail(code);
}

bool Query::isNull(int index) const {
    return sqlite3_column_type(statement_, index) == SQLITE_NULL;
}

void Query::read(int index, bool& value) const {
    value = sqlite3_column_int64(statement_, index) != 0;
}

void Query::read(int index, int& value) const {
    value = sqlite3_column_int(statement_, index);
}

void Query::read(int index, std::int64_t& value) const {
    value = sqlite3_column_int64(statement_, index);
}

void Query::read(int index, double& value) const {
    value = sqlite3_column_double(statement_, index);
}

void Query::read(int index, std::string_view& value) const {
    const void* data = sqlite3_column_blob(statement_, index);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, index));
    value = data != nullptr ? std::string_view(static_cast<const char*>(data), size) : std::string_view();
}

void Query::read(int index, std::string& value) const {
    std::string_view view;
    read(index, view);
    value.assign(view);
}

void Query::read(int index, Date& value) const {
    value = dateFromUnixMilliseconds(sqlite3_column_int64(statement_, index));
}

void Query::read(int index, UUID& value) const {
    std::string_view view;
    read(index, view);
    value = UUID::fromOctets(view).value_or(UUID());
}

// --- Database --------------------------------------------------------------------------------------------------

void Database::Close::operator()(sqlite3* connection) const {
    sqlite3_close_v2(connection);
}

Database::Database(const std::filesystem::path& file, const DatabaseOptions& options) {
    if (options.access == DatabaseOptions::Access::create) createPrivately(file);
    sqlite3* connection = nullptr;
    const int code = sqlite3_open_v2(file.c_str(), &connection, openFlags(options.access), nullptr);
    connection_.reset(connection);
    if (code != SQLITE_OK) throw SQLiteError(code, sqlite3_errstr(code));
    setBusyTimeout(options.busyTimeout);
    execute(pragmas(options));
}

Database::~Database() {
    for (const auto& [sql, statements] : idle_) {
        for (sqlite3_stmt* statement : statements) sqlite3_finalize(statement);
    }
}

void Database::execute(const std::string& sql) {
    const int code = sqlite3_exec(connection_.get(), sql.c_str(), nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) fail(code);
}

Query Database::query(std::string_view sql) {
    auto known = idle_.find(sql);
    if (known == idle_.end()) known = idle_.try_emplace(std::string(sql)).first;
    // The key of the map outlives every use, whatever happens to the caller's text.
    const std::string_view kept = known->first;
    if (known->second.empty()) return {*this, kept, prepare(kept)};
    sqlite3_stmt* statement = known->second.back();
    known->second.pop_back();
    return {*this, kept, statement};
}

sqlite3_stmt* Database::prepare(std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(connection_.get(), sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK) throw SQLiteError(code, sqlite3_errmsg(connection_.get()));
    return statement;
}

void Database::giveBack(std::string_view sql, sqlite3_stmt* statement) noexcept {
    try {
        idle_.find(sql)->second.push_back(statement);
    } catch (const std::bad_alloc&) {
        sqlite3_finalize(statement);
    }
}

void Database::fail(int code) const {
    // The text of a result code, not the connection's message: that one may quote what was searched for.
    const int extended = sqlite3_extended_errcode(connection_.get());
    const int precise = (extended & 0xFF) == (code & 0xFF) ? extended : code;
    throw SQLiteError(precise, sqlite3_errstr(precise));
}

std::int64_t Database::lastInsertID() const {
    return sqlite3_last_insert_rowid(connection_.get());
}

std::int64_t Database::changedRows() const {
    return sqlite3_changes64(connection_.get());
}

std::int64_t Database::totalChangedRows() const {
    return sqlite3_total_changes64(connection_.get());
}

void Database::setBusyTimeout(Duration timeout) {
    sqlite3_busy_timeout(connection_.get(), static_cast<int>(timeout.count()));
    busyTimeout_ = timeout;
}

bool Database::isInTransaction() const {
    return sqlite3_get_autocommit(connection_.get()) == 0;
}

int Database::userVersion() {
    auto row = query("PRAGMA user_version");
    return row.step() ? row.column<int>(0) : 0;
}

void Database::setUserVersion(int version) {
    execute("PRAGMA user_version=" + std::to_string(version));
}

std::string Database::integrityCheck() {
    std::string found;
    for (auto row = query("PRAGMA integrity_check"); row.step();) {
        if (!found.empty()) found += '\n';
        found += row.column<std::string_view>(0);
    }
    return found;
}

// --- Transaction -----------------------------------------------------------------------------------------------

Transaction::Transaction(Database& database, Kind kind) : database_(database) {
    database_.query(kind == Kind::write ? "BEGIN IMMEDIATE" : "BEGIN").run();
}

std::unique_ptr<Transaction> Transaction::beginUnlessBusy(Database& database) {
    struct WithoutWaiting {
        explicit WithoutWaiting(Database& database_) : database(database_), timeout(database_.busyTimeout()) {
            database.setBusyTimeout(Duration{0});
        }
        WithoutWaiting(const WithoutWaiting&) = delete;
        WithoutWaiting& operator=(const WithoutWaiting&) = delete;
        ~WithoutWaiting() { database.setBusyTimeout(timeout); }
        Database& database;
        Duration timeout;
    };
    const WithoutWaiting guard(database);
    try {
        database.query("BEGIN IMMEDIATE").run();
    } catch (const SQLiteError& error) {
        if (error.kind() != SQLiteError::Kind::busy) throw;
        return nullptr;
    }
    return std::unique_ptr<Transaction>(new Transaction(database, Begun{}));
}

Transaction::~Transaction() {
    // A full disk or a failing one has made SQLite roll back already.
    if (!isOpen_ || !database_.isInTransaction()) return;
    try {
        database_.query("ROLLBACK").run();
    } catch (const SQLiteError&) {
    }
}

void Transaction::commit() {
    database_.query("COMMIT").run();
    isOpen_ = false;
}

}
