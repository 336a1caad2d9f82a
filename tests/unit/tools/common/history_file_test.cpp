// Rows of the history as JSON, and what a reader finds in the gateway's file.
#include "common/history_file.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::history;
using namespace std::chrono_literals;

namespace {

TEST(HistoryRowTest, OfAResultHasAllThatIsKnown) {
    Row row;
    row.seq = 1763800000123;
    row.time = TimeOfMs(1763800000123);
    row.item = "ok";
    row.status = "success";
    row.begin = TimeOfMs(1763799999000);
    row.duration = std::chrono::milliseconds(1123);
    row.cause = "timer";
    EXPECT_EQ(
        JsonOf(row).Print(),
        R"({"seq":1763800000123,"time":"2025-11-22T08:26:40.123Z","kind":"result","item":"ok","status":"success",)"
        R"("text":"","begin":"2025-11-22T08:26:39.000Z","durationMs":1123,"cause":"timer"})");
}

TEST(HistoryRowTest, LeavesOutWhatItLacks) {
    Row row;
    row.kind = Kind::kServer;
    row.status = "away";
    EXPECT_EQ(JsonOf(row).Print(), R"({"time":"1970-01-01T00:00:00.000Z","kind":"server","status":"away"})");
    row.seq = 1;
    row.duration = std::chrono::milliseconds(-1);
    EXPECT_EQ(JsonOf(row, "begin").Print(),
              R"({"seq":1,"time":"1970-01-01T00:00:00.000Z","kind":"begin","status":"away","durationMs":0})");
}

// The file in its first form, as gateways in the field have it.
constexpr const char* kForm =
    "CREATE TABLE events(seq INTEGER PRIMARY KEY, time INTEGER NOT NULL, kind INTEGER NOT NULL,"
    " item TEXT NOT NULL, status TEXT NOT NULL, text TEXT NOT NULL, begin INTEGER, duration INTEGER,"
    " cause TEXT NOT NULL);"
    "CREATE INDEX events_item ON events(item, seq);"
    "CREATE TABLE meta(key TEXT PRIMARY KEY, value) WITHOUT ROWID;"
    "PRAGMA user_version=1;";

constexpr const char* kEvents =
    "INSERT INTO events VALUES"
    "(3,1000,2,'','up','',NULL,NULL,''),"
    "(4,1100,1,'a','success','old',1040,60,'timer'),"
    "(5,1200,1,'b','fail','bad',NULL,NULL,''),"
    "(6,1300,3,'','busy','',NULL,NULL,''),"
    "(7,1400,4,'','','',1350,NULL,''),"
    "(8,1500,1,'a','warn','new',NULL,0,''),"
    "(9,1600,1,'a','running','',NULL,NULL,''),"
    "(10,1700,1,'c','idle','',NULL,NULL,''),"
    "(11,1800,1,'','success','of no item',NULL,NULL,'');"
    "INSERT INTO meta VALUES('bus','unix:path=/bus'),('watched',1900);";

template <typename Member, typename Value>
Filter With(Member Filter::*member, Value value, Filter filter = {}) {
    filter.*member = value;
    return filter;
}

class HistoryReaderTest : public testing::Test {
protected:
    void Write(const std::string& sql) const {
        auto database = sqlite::Database::Open(path_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
        ASSERT_TRUE(database) << database.Failure().text;
        const auto error = database->Execute(sql);
        EXPECT_FALSE(error) << error->text;
    }
    std::unique_ptr<Reader> Opened() const {
        auto reader = Reader::Open(path_);
        EXPECT_TRUE(reader) << reader.Failure().text;
        return reader ? std::move(*reader) : nullptr;
    }
    std::unique_ptr<Reader> OpenedWithEvents() const {
        Write(std::string(kForm) + kEvents);
        return Opened();
    }
    std::string RefusalOf(const std::string& sql) const {
        Write(sql);
        const auto reader = Reader::Open(path_);
        return reader ? "none" : reader.Failure().text;
    }

    // The sequence numbers of what is found, each with a blank before it.
    static std::string Found(Reader& reader, const Filter& filter) {
        const auto rows = reader.Find(filter);
        EXPECT_TRUE(rows) << rows.Failure().text;
        std::string out;
        for (const Row& row : rows ? *rows : std::vector<Row>()) {
            out += " " + std::to_string(row.seq);
        }
        return out;
    }

    // 0: none.
    static std::uint64_t LastOf(Reader& reader, const std::string& item) {
        const auto row = reader.LastResult(item);
        EXPECT_TRUE(row) << row.Failure().text;
        return row && *row ? (*row)->seq : 0;
    }

    static void ExpectExtentAndBus(Reader& reader, std::uint64_t first, std::uint64_t last, std::uint64_t count,
                                   const std::string& bus) {
        const auto extent = reader.Extent();
        ASSERT_TRUE(extent);
        EXPECT_EQ(extent->first, first);
        EXPECT_EQ(extent->last, last);
        EXPECT_EQ(extent->count, count);
        const auto found = reader.Bus();
        ASSERT_TRUE(found);
        EXPECT_EQ(*found, bus);
    }

    const support::TempFolder folder_;
    const std::string path_ = folder_ / "history.db";
};

TEST_F(HistoryReaderTest, GivesAllOfARow) {
    const auto reader = OpenedWithEvents();
    ASSERT_NE(reader, nullptr);
    const auto rows = reader->Find(With(&Filter::before, 6, With(&Filter::after, 3)));
    ASSERT_TRUE(rows);
    ASSERT_EQ(rows->size(), 2U);
    const Row& bare = (*rows)[0];
    EXPECT_EQ(bare.seq, 5U);
    EXPECT_FALSE(bare.begin);
    EXPECT_FALSE(bare.duration);
    EXPECT_EQ(bare.cause, "");
    const Row& full = (*rows)[1];
    EXPECT_EQ(full.seq, 4U);
    EXPECT_EQ(full.time, TimeOfMs(1100));
    EXPECT_EQ(full.kind, Kind::kResult);
    EXPECT_EQ(full.item, "a");
    EXPECT_EQ(full.status, "success");
    EXPECT_EQ(full.text, "old");
    EXPECT_EQ(full.begin, TimeOfMs(1040));
    EXPECT_EQ(full.duration, 60ms);
    EXPECT_EQ(full.cause, "timer");
    const auto last = reader->LastResult("a");
    ASSERT_TRUE(last && *last);
    EXPECT_FALSE((*last)->begin);
    EXPECT_EQ((*last)->duration, 0ms);
}

TEST_F(HistoryReaderTest, FindsTheLatestFirstUnlessAskedOtherwise) {
    const auto reader = OpenedWithEvents();
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(Found(*reader, {}), " 11 10 9 8 7 6 5 4 3");
    EXPECT_EQ(Found(*reader, With(&Filter::limit, 2)), " 11 10");
    EXPECT_EQ(Found(*reader, With(&Filter::isOldestFirst, true, With(&Filter::limit, 2))), " 3 4");
    EXPECT_EQ(Found(*reader, With(&Filter::before, 6)), " 5 4 3");
    EXPECT_EQ(Found(*reader, With(&Filter::after, 9)), " 11 10");
}

TEST_F(HistoryReaderTest, FindsWhatEveryPartOfAFilterAllows) {
    const auto reader = OpenedWithEvents();
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(Found(*reader, With(&Filter::item, "a")), " 9 8 7 4 3")
        << "gaps and the server's changes belong to every item";
    EXPECT_EQ(Found(*reader, With(&Filter::item, "nosuch")), " 7 3");
    EXPECT_EQ(Found(*reader, With(&Filter::status, "success")), " 11 4");
    EXPECT_EQ(Found(*reader, With(&Filter::since, TimeOfMs(1600))), " 11 10 9");
    EXPECT_EQ(Found(*reader, With(&Filter::until, TimeOfMs(1100))), " 4 3");
    Filter all = With(&Filter::item, "a", With(&Filter::status, "warn"));
    EXPECT_EQ(Found(*reader, all), " 8");
    all.status = "fail";
    EXPECT_EQ(Found(*reader, all), "");
    all = With(&Filter::since, TimeOfMs(1200), With(&Filter::until, TimeOfMs(1600)));
    EXPECT_EQ(Found(*reader, all), " 9 8 7 6 5");
    EXPECT_EQ(Found(*reader, With(&Filter::before, 9, With(&Filter::after, 6, all))), " 8 7");
}

TEST_F(HistoryReaderTest, KnowsTheLastFinalResultOfAnItem) {
    const auto reader = OpenedWithEvents();
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(LastOf(*reader, "a"), 8U) << "a run that has begun is no result";
    EXPECT_EQ(LastOf(*reader, "b"), 5U) << "one question after the other";
    EXPECT_EQ(LastOf(*reader, "c"), 0U);
    EXPECT_EQ(LastOf(*reader, "nosuch"), 0U);
    EXPECT_EQ(LastOf(*reader, "a"), 8U);
    Write("INSERT INTO events VALUES(12,2000,1,'a','fail','',NULL,NULL,'')");
    EXPECT_EQ(LastOf(*reader, "a"), 12U) << "no former answer is held on to";
}

TEST_F(HistoryReaderTest, KnowsTheLastFinalResultOfEveryItem) {
    const auto reader = OpenedWithEvents();
    ASSERT_NE(reader, nullptr);
    const auto rows = reader->LastResults();
    ASSERT_TRUE(rows);
    ASSERT_EQ(rows->size(), 2U);
    EXPECT_EQ((*rows)[0].seq, 8U);
    EXPECT_EQ((*rows)[1].seq, 5U);
}

TEST_F(HistoryReaderTest, KnowsTheExtentAndTheBus) {
    const auto reader = OpenedWithEvents();
    ASSERT_NE(reader, nullptr);
    ExpectExtentAndBus(*reader, 3, 11, 9, "unix:path=/bus");
}

TEST_F(HistoryReaderTest, FindsNothingInAnEmptyHistory) {
    Write(kForm);
    const auto reader = Opened();
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(Found(*reader, {}), "");
    EXPECT_EQ(LastOf(*reader, "a"), 0U);
    const auto rows = reader->LastResults();
    ASSERT_TRUE(rows);
    EXPECT_TRUE(rows->empty());
    ExpectExtentAndBus(*reader, 0, 0, 0, "");
}

TEST_F(HistoryReaderTest, RefusesAFormThatItDoesNotKnow) {
    EXPECT_EQ(RefusalOf("PRAGMA user_version=1"), "none");
    EXPECT_EQ(RefusalOf("PRAGMA user_version=2"), "the history has the form 2, and this program knows 1");
    EXPECT_EQ(RefusalOf("PRAGMA user_version=0"), "the history has the form 0, and this program knows 1");
    EXPECT_EQ(RefusalOf("PRAGMA user_version=-1"), "the history has the form -1, and this program knows 1");
}

TEST_F(HistoryReaderTest, TellsWhatIsNotThere) {
    const auto missing = Reader::Open(path_);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.Failure().text, "unable to open database file");
    Write("PRAGMA user_version=1");
    const auto reader = Opened();
    ASSERT_NE(reader, nullptr);
    const auto told = [](const auto& answer) { return answer ? "none" : answer.Failure().text; };
    EXPECT_EQ(told(reader->Find({})), "no such table: events");
    EXPECT_EQ(told(reader->LastResult("a")), "no such table: events");
    EXPECT_EQ(told(reader->LastResults()), "no such table: events");
    EXPECT_EQ(told(reader->Extent()), "no such table: events");
    EXPECT_EQ(told(reader->Bus()), "no such table: meta");
}

TEST(HistoryWords, AreThoseOfKindsAndBuses) {
    EXPECT_STREQ(WordOf(Kind::kResult), "result");
    EXPECT_STREQ(WordOf(Kind::kServer), "server");
    EXPECT_STREQ(WordOf(Kind::kBusy), "busy");
    EXPECT_STREQ(WordOf(Kind::kGap), "gap");
    EXPECT_EQ(BusName(nullptr), "system");
    EXPECT_EQ(BusName(""), "system");
    EXPECT_EQ(BusName("unix:path=/bus"), "unix:path=/bus");
    for (const char* status : {"", "idle", "running"}) {
        EXPECT_FALSE(IsFinal(status)) << status;
    }
    EXPECT_TRUE(IsFinal("success"));
}

}  // namespace
