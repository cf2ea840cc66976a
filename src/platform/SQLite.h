#pragma once

#include "base/Bytes.h"
#include "base/Date.h"
#include "base/UUID.h"
#include "base/UserError.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

/// SQLite with types: a connection, statements that are prepared once, and transactions that roll back by themselves.
/// A connection and everything taken from it belong to one executor at a time.
namespace velmo::sqlite {

/// Why the database refused. The sentence tells a person what to do; it never holds values of a row.
class SQLiteError final : public UserError {
  public:
    enum class Kind {
        busy,       ///< another connection or program holds the lock
        full,       ///< no space left
        corrupt,    ///< the file is damaged, or no database
        cannotOpen, ///< missing, or no permission
        readOnly,
        constraint, ///< a unique key or a check said no
        io,         ///< the disk failed
        other
    };

    /// `code` is an extended result code of SQLite, `detail` is for the log.
    SQLiteError(int code, std::string detail);

    Kind kind() const { return kind_; }
    int code() const { return code_; }
    const std::string& detail() const { return detail_; }

    friend bool operator==(const SQLiteError& a, const SQLiteError& b) { return a.code_ == b.code_; }

  private:
    Kind kind_;
    int code_;
    std::string detail_;
};

/// Bytes that are bound as a blob; plain text is bound as text.
struct Blob {
    BytesView bytes;
};

class Database;

/// One use of a prepared statement. Dropping it resets the statement and gives it back to its connection, which has to
/// outlive it. An unfinished read keeps a snapshot open, so a query is dropped before anything is waited for.
class Query {
  public:
    Query(Query&& other) noexcept;
    Query& operator=(Query&&) = delete;
    ~Query();

    /// Binds the values in order, from the first parameter on. Text and blobs are copied.
    template <class... Values>
    Query& bind(const Values&... values) {
        int index = 0;
        (bindOne(++index, values, Lifetime::copied), ...);
        return *this;
    }

    /// Runs a statement that gives no rows with these values; may be called again and again.
    template <class... Values>
    void run(const Values&... values) {
        int index = 0;
        (bindOne(++index, values, Lifetime::borrowed), ...);
        finish();
    }

    /// Moves to the next row; false behind the last one, when the statement is ready to be bound again.
    bool step();

    /// The value of a column (from 0) of the present row. NULL reads as zero or as empty text, or as an absent
    /// optional. A std::string_view lives until the next step.
    template <class T>
    T column(int index) const {
        T value{};
        read(index, value);
        return value;
    }

    /// Reads the first columns of the present row into the given places, in order.
    template <class... Values>
    void read(Values&... values) const {
        int index = 0;
        (read(index++, values), ...);
    }

  private:
    friend class Database;
    enum class Lifetime { copied, borrowed };

    Query(Database& database, std::string_view sql, sqlite3_stmt* statement)
        : database_(&database), sql_(sql), statement_(statement) {}

    void finish();

    void bindNull(int index);
    void bindInteger(int index, std::int64_t value);
    void bindDouble(int index, double value);
    void bindText(int index, std::string_view text, Lifetime lifetime);
    void bindBlob(int index, BytesView bytes, Lifetime lifetime);

    template <std::integral T>
        requires(sizeof(T) < sizeof(std::int64_t) || std::signed_integral<T>)
    void bindOne(int index, T value, Lifetime) {
        bindInteger(index, std::int64_t{value});
    }
    void bindOne(int index, double value, Lifetime) { bindDouble(index, value); }
    void bindOne(int index, Date value, Lifetime) { bindInteger(index, unixMilliseconds(value)); }
    void bindOne(int index, std::nullopt_t, Lifetime) { bindNull(index); }
    void bindOne(int index, std::string_view value, Lifetime lifetime) { bindText(index, value, lifetime); }
    void bindOne(int index, const char* value, Lifetime lifetime) { bindText(index, value, lifetime); }
    void bindOne(int index, Blob value, Lifetime lifetime) { bindBlob(index, value.bytes, lifetime); }
    void bindOne(int index, const UUID& value, Lifetime lifetime);
    template <class T>
    void bindOne(int index, const std::optional<T>& value, Lifetime lifetime) {
        if (value)
            bindOne(index, *value, lifetime);
        else
            bindNull(index);
    }

    bool isNull(int index) const;
    void read(int index, bool& value) const;
    void read(int index, int& value) const;
    void read(int index, std::int64_t& value) const;
    void read(int index, double& value) const;
    void read(int index, std::string_view& value) const;
    void read(int index, std::string& value) const;
    void read(int index, Date& value) const;
    void read(int index, UUID& value) const;
    template <class T>
    void read(int index, std::optional<T>& value) const {
        if (isNull(index))
            value.reset();
        else
            read(index, value.emplace());
    }

    Database* database_;
    std::string_view sql_;
    sqlite3_stmt* statement_;
};

/// How a database file is opened.
struct DatabaseOptions {
    enum class Access { readOnly, readWrite, create };
    enum class Journal { writeAhead, rollback };
    /// What a commit waits for. With a write-ahead log, `normal` can lose the last commits in a power cut but never a
    /// part of one; `full` loses none; `off` is for files that nobody misses.
    enum class Durability { off, normal, full };

    DatabaseOptions() = default;

    Access access = Access::create;
    Journal journal = Journal::writeAhead;
    Durability durability = Durability::normal;
    Duration busyTimeout{5000}; ///< how long a statement waits for somebody else's lock
};

/// A connection to one database file.
class Database {
  public:
    /// Throws SQLiteError. A new file has mode 0600, whatever the umask is.
    explicit Database(const std::filesystem::path& file, const DatabaseOptions& options = {});
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    /// Runs any number of statements without values; rows are dropped.
    void execute(const std::string& sql);

    /// A statement, prepared at its first use and kept.
    Query query(std::string_view sql);

    std::int64_t lastInsertID() const;

    /// Rows that the last INSERT, UPDATE or DELETE touched.
    std::int64_t changedRows() const;

    /// Rows that were touched since the connection was opened.
    std::int64_t totalChangedRows() const;

    bool isInTransaction() const;

    /// How long a statement waits for somebody else's lock from now on.
    void setBusyTimeout(Duration timeout);
    Duration busyTimeout() const { return busyTimeout_; }

    /// The number that the file keeps for its owner; 0 in a new file.
    int userVersion();
    void setUserVersion(int version);

    /// What the checker of the file finds: "ok", or the damage.
    std::string integrityCheck();

  private:
    friend class Query;
    sqlite3_stmt* prepare(std::string_view sql);
    void giveBack(std::string_view sql, sqlite3_stmt* statement) noexcept;
    [[noreturn]] void fail(int code) const;

    struct Close {
        void operator()(sqlite3* connection) const;
    };
    struct TextHash : std::hash<std::string_view> {
        using is_transparent = void;
    };
    std::unique_ptr<sqlite3, Close> connection_;
    Duration busyTimeout_{0};
    /// Idle statements by their text. A statement in use has been taken out, so a nested use prepares a second one.
    std::unordered_map<std::string, std::vector<sqlite3_stmt*>, TextHash, std::equal_to<>> idle_;
};

/// A write transaction: takes the write lock at once, and rolls back unless it was committed.
class Transaction {
  public:
    enum class Kind {
        write, ///< takes the lock of the writer at once
        read   ///< what is read is of one state, and costs one lock
    };
    explicit Transaction(Database& database, Kind kind = Kind::write);

    /// A write transaction; null when another connection holds the lock, without waiting for it.
    static std::unique_ptr<Transaction> beginUnlessBusy(Database& database);

    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

  private:
    struct Begun {};
    Transaction(Database& database, Begun) : database_(database) {}

    Database& database_;
    bool isOpen_ = true;
};

}
