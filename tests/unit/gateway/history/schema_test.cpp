// The forms of the history's database: every released one becomes the present one.
#include "history/schema.h"

#include <array>

#include "history_test.h"

using namespace ominspect;
using namespace ominspect::gateway;
using namespace support;

namespace {

sqlite::Database Open(const std::string& path) {
    auto database = sqlite::Database::Open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    EXPECT_TRUE(database);
    return std::move(*database);
}

// As form 1 wrote it.
constexpr const char* kFormOne =
    "CREATE TABLE events(seq INTEGER PRIMARY KEY, time INTEGER NOT NULL, kind INTEGER NOT NULL, item TEXT NOT NULL,"
    " status TEXT NOT NULL, text TEXT NOT NULL, begin INTEGER, duration INTEGER, cause TEXT NOT NULL);"
    "CREATE INDEX events_item ON events(item, seq);"
    "CREATE INDEX events_time ON events(time);"
    "CREATE INDEX events_change ON events(kind, seq) WHERE kind IN (2,4);"
    "CREATE TABLE meta(key TEXT PRIMARY KEY, value) WITHOUT ROWID;"
    "INSERT INTO events VALUES(7,1700000000123,1,'disk','warn','nearly full',1700000000000,123,'page');"
    "INSERT INTO meta VALUES('bus','system');"
    "INSERT INTO meta VALUES('watched',1700000000200);"
    "PRAGMA user_version=1";

TEST(HistorySchema, AnEmptyDatabaseBecomesThePresentForm) {
    const TempFolder folder;
    auto database = Open(folder / "h.db");
    EXPECT_FALSE(Migrate(database));
    EXPECT_EQ(*database.Ask("PRAGMA user_version"), 1);
    EXPECT_FALSE(Migrate(database)) << "once more is no error";
}

TEST(HistorySchema, TheFirstFormIsRead) {
    const TempFolder folder;
    {
        auto database = Open(folder / "h.db");
        ASSERT_FALSE(database.Execute(kFormOne));
    }
    const auto store = OpenStore(folder / "h.db");
    EXPECT_EQ(store->LastSeq(), 7U);
    EXPECT_EQ(store->WatchedUntil(), history::TimeOfMs(1700000000200));
    const auto rows = RowsOf(folder / "h.db");
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].seq, 7U);
    EXPECT_EQ(rows[0].time, history::TimeOfMs(1700000000123));
    EXPECT_EQ(rows[0].kind, history::Kind::kResult);
    EXPECT_EQ(rows[0].item, "disk");
    EXPECT_EQ(rows[0].status, "warn");
    EXPECT_EQ(rows[0].text, "nearly full");
    EXPECT_EQ(rows[0].begin, history::TimeOfMs(1700000000000));
    EXPECT_EQ(rows[0].duration->count(), 123);
    EXPECT_EQ(rows[0].cause, "page");
}

TEST(HistorySchema, EachStepIsTakenOnceAndInOrder) {
    const TempFolder folder;
    auto database = Open(folder / "h.db");
    constexpr std::array kFirst{"CREATE TABLE a(x); INSERT INTO a VALUES(1)"};
    constexpr std::array kBoth{"CREATE TABLE a(x); INSERT INTO a VALUES(1)", "ALTER TABLE a ADD y DEFAULT 5"};
    ASSERT_FALSE(Migrate(database, kFirst));
    ASSERT_FALSE(Migrate(database, kBoth));
    EXPECT_EQ(*database.Ask("SELECT sum(x+y) FROM a"), 6);
    EXPECT_EQ(*database.Ask("PRAGMA user_version"), 2);
}

TEST(HistorySchema, AStepThatFailsLeavesTheFormBefore) {
    const TempFolder folder;
    auto database = Open(folder / "h.db");
    constexpr std::array kBroken{"CREATE TABLE a(x)", "CREATE TABLE b(x); INSERT INTO absent VALUES(1)"};
    const auto error = Migrate(database, kBroken);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text, "no such table: absent");
    EXPECT_EQ(*database.Ask("PRAGMA user_version"), 1);
    EXPECT_EQ(*database.Ask("SELECT count(*) FROM sqlite_schema WHERE name='b'"), 0);
}

TEST(HistorySchema, ANewerFormIsRefusedAndStaysAsItIs) {
    const TempFolder folder;
    {
        auto database = Open(folder / "h.db");
        ASSERT_FALSE(database.Execute("CREATE TABLE future(x); PRAGMA user_version=2"));
    }
    bool setAside = false;
    const auto store = Store::Open(folder / "h.db", "system", setAside);
    ASSERT_FALSE(store);
    EXPECT_EQ(store.Failure().text, "the history has the form 2, and this program knows 1");
    EXPECT_FALSE(setAside);
    const auto reader = history::Reader::Open(folder / "h.db");
    ASSERT_FALSE(reader);
    EXPECT_EQ(reader.Failure().text, "the history has the form 2, and this program knows 1");
    auto database = Open(folder / "h.db");
    EXPECT_EQ(*database.Ask("PRAGMA user_version"), 2);
}

}  // namespace
