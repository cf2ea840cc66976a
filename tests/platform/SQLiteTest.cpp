#include "platform/SQLite.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/stat.h>

namespace velmo::sqlite { namespace {

class SQLiteTest : public testing::Test {
  protected:
    test::TemporaryDirectory directory_;
    std::filesystem::path file_ = directory_ / "Data.sqlite";
};

std::optional<SQLiteError::Kind> failure(auto&& action) {
    try {
        action();
    } catch (const SQLiteError& error) {
        EXPECT_FALSE(error.sentence().empty());
        return error.kind();
    }
    return std::nullopt;
}

TEST_F(SQLiteTest, ValuesComeBackAsTheyWere) {
    Database database(file_);
    database.execute("CREATE TABLE t (i, d, s, b, date, id, absent, present)");
    const auto id = UUID::random();
    const std::string text("nul\0 inside, ü", 15);
    const Date before1970 = dateFromUnixMilliseconds(-1234);
    database.query("INSERT INTO t VALUES (?, ?, ?, ?, ?, ?, ?, ?)")
        .run(std::int64_t{-5'000'000'000}, 0.1, text, Blob{"\xFF\x00"}, before1970, id, std::optional<std::string>(),
             std::optional<std::string>(""));
    auto row = database.query("SELECT * FROM t");
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.column<std::int64_t>(0), -5'000'000'000);
    EXPECT_EQ(row.column<double>(1), 0.1);
    EXPECT_EQ(row.column<std::string>(2), text);
    EXPECT_EQ(row.column<std::string_view>(3), "\xFF");
    EXPECT_EQ(row.column<Date>(4), before1970);
    EXPECT_EQ(row.column<UUID>(5), id);
    EXPECT_EQ(row.column<std::optional<std::string>>(6), std::nullopt);
    // Empty is not absent.
    EXPECT_EQ(row.column<std::optional<std::string>>(7), "");
    EXPECT_FALSE(row.step());
}

TEST_F(SQLiteTest, AStatementInUseIsNotDisturbedByItsTwin) {
    Database database(file_);
    database.execute("CREATE TABLE t (n); INSERT INTO t VALUES (1), (2), (3)");
    int pairs = 0;
    auto outer = database.query("SELECT n FROM t");
    while (outer.step()) {
        for (auto inner = database.query("SELECT n FROM t"); inner.step();) ++pairs;
    }
    EXPECT_EQ(pairs, 9);

    // A value that was bound for one use is no value of the next.
    database.query("INSERT INTO t VALUES (?)").run(4);
    database.query("INSERT INTO t VALUES (?)").run();
    auto nulls = database.query("SELECT count(*) FROM t WHERE n IS NULL");
    ASSERT_TRUE(nulls.step());
    EXPECT_EQ(nulls.column<int>(0), 1);
}

TEST_F(SQLiteTest, ATransactionIsAllOrNothing) {
    Database database(file_);
    database.execute("CREATE TABLE t (n UNIQUE)");
    const auto insertThenThrow = [&] {
        Transaction transaction(database);
        database.query("INSERT INTO t VALUES (?)").run(1);
        throw std::runtime_error("in the middle");
    };
    EXPECT_THROW(insertThenThrow(), std::runtime_error);
    EXPECT_FALSE(database.isInTransaction());
    {
        Transaction transaction(database);
        database.query("INSERT INTO t VALUES (?)").run(2);
        EXPECT_EQ(failure([&] { database.query("INSERT INTO t VALUES (?)").run(2); }), SQLiteError::Kind::constraint);
        transaction.commit();
    }
    auto row = database.query("SELECT group_concat(n) FROM t");
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.column<std::string>(0), "2");
}

TEST_F(SQLiteTest, FailuresAreToldApart) {
    DatabaseOptions impatient;
    impatient.busyTimeout = Duration{1};
    DatabaseOptions readOnly;
    readOnly.access = DatabaseOptions::Access::readOnly;

    EXPECT_EQ(failure([&] { Database(directory_ / "missing", readOnly); }), SQLiteError::Kind::cannotOpen);

    Database database(file_, impatient);
    database.execute("CREATE TABLE t (b)");
    struct stat status {};
    ASSERT_EQ(::stat(file_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    EXPECT_EQ(failure([&] {
                  Transaction transaction(database);
                  Database other(file_, impatient);
                  Transaction second(other);
              }),
              SQLiteError::Kind::busy);
    EXPECT_EQ(failure([&] { Database(file_, readOnly).execute("DELETE FROM t"); }), SQLiteError::Kind::readOnly);

    database.execute("PRAGMA max_page_count=10");
    EXPECT_EQ(failure([&] { database.query("INSERT INTO t VALUES (?)").run(std::string(100'000, 'x')); }),
              SQLiteError::Kind::full);
    EXPECT_FALSE(database.isInTransaction());

    test::writeFile(directory_ / "junk", std::string(8192, 'j'));
    EXPECT_EQ(failure([&] { Database(directory_ / "junk").userVersion(); }), SQLiteError::Kind::corrupt);
}

TEST_F(SQLiteTest, NoErrorQuotesAValue) {
    Database database(file_);
    database.execute("CREATE VIRTUAL TABLE f USING fts5(t)");
    try {
        auto row = database.query("SELECT * FROM f WHERE f MATCH ?");
        row.bind("\"hidden words");
        row.step();
        FAIL();
    } catch (const SQLiteError& error) {
        EXPECT_EQ((error.sentence() + error.detail()).find("hidden"), std::string::npos);
    }
}

}}
