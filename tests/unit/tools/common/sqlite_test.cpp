// Statements and databases: what they give, and that every failure is told.
#include "common/sqlite.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::sqlite;

namespace {

class SqliteTest : public testing::Test {
protected:
    static Database Opened(const std::string& path = ":memory:") {
        auto database = Database::Open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
        EXPECT_TRUE(database) << database.Failure().text;
        return std::move(*database);
    }

    Statement Prepared(const char* sql) {
        auto statement = database_.Prepare(sql);
        EXPECT_TRUE(statement) << statement.Failure().text;
        return std::move(*statement);
    }

    static bool Step(Statement& statement) {
        const auto row = statement.Step();
        EXPECT_TRUE(row) << row.Failure().text;
        return row && *row;
    }

    Database database_ = Opened();
};

TEST_F(SqliteTest, GivesTheRowsAndThenTheEnd) {
    ASSERT_FALSE(database_.Execute("CREATE TABLE t(a,b); INSERT INTO t VALUES(7,'x'),(8,NULL)"));
    Statement rows = Prepared("SELECT a,b FROM t ORDER BY a");
    ASSERT_TRUE(Step(rows));
    EXPECT_EQ(rows.Number(0), 7);
    EXPECT_EQ(rows.Text(1), "x");
    EXPECT_FALSE(rows.IsNull(1));
    ASSERT_TRUE(Step(rows));
    EXPECT_EQ(rows.Number(0), 8);
    EXPECT_EQ(rows.Text(1), "");
    EXPECT_TRUE(rows.IsNull(1));
    EXPECT_FALSE(Step(rows));
    ASSERT_TRUE(Step(rows)) << "it starts anew";
    EXPECT_EQ(rows.Number(0), 7);
    rows.Reset();
    ASSERT_TRUE(Step(rows));
    EXPECT_EQ(rows.Number(0), 7);
}

TEST_F(SqliteTest, KeepsTextWithZeroBytes) {
    using namespace std::string_view_literals;
    Statement text = Prepared("SELECT ?1");
    text.Bind(1, "a\0b"sv);
    ASSERT_TRUE(Step(text));
    EXPECT_EQ(text.Text(0), "a\0b"sv);
}

TEST_F(SqliteTest, ParametersHoldForOneReading) {
    Statement values = Prepared("SELECT ?1,?2,?3,?4");
    values.Bind(1, std::optional<std::int64_t>(5)).Bind(2, std::optional<std::string>("text"));
    values.Bind(3, std::optional<std::int64_t>()).Bind(4, std::optional<std::string>());
    ASSERT_TRUE(Step(values));
    EXPECT_EQ(values.Number(0), 5);
    EXPECT_EQ(values.Text(1), "text");
    EXPECT_TRUE(values.IsNull(2));
    EXPECT_TRUE(values.IsNull(3));
    EXPECT_FALSE(Step(values));
    ASSERT_TRUE(Step(values));
    EXPECT_TRUE(values.IsNull(0));
    EXPECT_TRUE(values.IsNull(1));
    values.Reset();
    values.Bind(1, 5).Bind(1, std::optional<std::int64_t>());
    values.Bind(2, std::string_view("text")).Bind(2, std::optional<std::string>());
    ASSERT_TRUE(Step(values));
    EXPECT_TRUE(values.IsNull(0));
    EXPECT_TRUE(values.IsNull(1));
}

TEST_F(SqliteTest, AStepThatFailsSaysWhyAndCanBeTakenAgain) {
    ASSERT_FALSE(database_.Execute("CREATE TABLE t(a NOT NULL)"));
    Statement insert = Prepared("INSERT INTO t VALUES(?1)");
    const auto refused = insert.Step();
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.Failure().text, "NOT NULL constraint failed: t.a");
    EXPECT_EQ(refused.Failure().number, SQLITE_CONSTRAINT_NOTNULL);
    insert.Bind(1, 1);
    EXPECT_FALSE(Step(insert));
    const auto count = database_.Ask("SELECT count(*) FROM t");
    ASSERT_TRUE(count);
    EXPECT_EQ(*count, 1);
}

TEST_F(SqliteTest, WhatIsNoSqlIsAnError) {
    EXPECT_FALSE(database_.Prepare("SELECT missing"));
    EXPECT_TRUE(database_.Execute("SELECT missing"));
    const auto answer = database_.Ask("SELECT missing");
    ASSERT_FALSE(answer);
    EXPECT_EQ(answer.Failure().text, "no such column: missing");
}

TEST_F(SqliteTest, AQuestionWithoutARowHasNoAnswer) {
    const auto answer = database_.Ask("SELECT 1 WHERE 0");
    ASSERT_FALSE(answer);
    EXPECT_EQ(answer.Failure().text, "no answer from the database");
}

TEST_F(SqliteTest, WaitsTwoSecondsForOthers) {
    const auto limit = database_.Ask("PRAGMA busy_timeout");
    ASSERT_TRUE(limit);
    EXPECT_EQ(*limit, 2000);
}

TEST_F(SqliteTest, AFileThatCannotBeOpenedIsAnError) {
    const support::WorkingFolder work;
    const auto missing = Database::Open("missing", SQLITE_OPEN_READONLY);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.Failure().text, "unable to open database file");
    EXPECT_EQ(missing.Failure().number & 0xff, SQLITE_CANTOPEN);
}

}  // namespace
