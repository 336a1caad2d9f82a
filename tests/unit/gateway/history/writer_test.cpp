// The history's thread: it keeps, says what is wrong, and goes on when that is over.
#include "history/writer.h"

#include <atomic>
#include <mutex>

#include "history_test.h"
#include "support/eventually.h"

using namespace ominspect;
using namespace ominspect::gateway;
using namespace support;
using namespace std::chrono_literals;

namespace {

class WriterTest : public testing::Test {
protected:
    Writer::Settings SettingsOf(const std::string& path) const {
        Writer::Settings settings;
        settings.path = path;
        settings.bus = "unix:path=/x";
        settings.retention.age = std::chrono::hours(24 * 36500);
        settings.retryPeriod = 10ms;
        settings.signPeriod = 10ms;
        return settings;
    }
    std::unique_ptr<Writer> Make(const Writer::Settings& settings) {
        return std::make_unique<Writer>(settings, parts, [this](const Event& gap) {
            const std::lock_guard lock(mutex);
            gaps.push_back(gap);
        });
    }
    std::vector<Event> Gaps() {
        const std::lock_guard lock(mutex);
        return gaps;
    }
    Part PartNow() const { return parts.All()["history"]; }

    const TempFolder folder;
    Parts parts{[](const std::string&, const Part&) {}};
    std::mutex mutex;
    std::vector<Event> gaps;
};

TEST_F(WriterTest, WhatIsSettledIsInTheFile) {
    const auto writer = Make(SettingsOf(folder / "h.db"));
    writer->Start();
    for (std::uint64_t seq = 1; seq <= 100; ++seq) {
        writer->Keep(ResultOf(seq, "item", "success"));
        writer->Settle(60s);
        ASSERT_EQ(RowsOf(folder / "h.db").at(0).seq, seq);
    }
    EXPECT_EQ(writer->LastSeq(), 100U);
    EXPECT_EQ(PartNow().state, PartState::kOk);
    EXPECT_TRUE(Gaps().empty()) << "a new history has no gap";
}

TEST_F(WriterTest, TheTimeBetweenTwoLivesIsAGap) {
    auto writer = Make(SettingsOf(folder / "h.db"));
    writer->Start();
    writer->Stop();
    const auto before = std::chrono::system_clock::now();
    writer = Make(SettingsOf(folder / "h.db"));
    EXPECT_TRUE(Gaps().empty()) << "it is told when somebody can hear it";
    writer->Start();
    writer->Stop();
    ASSERT_EQ(Gaps().size(), 1U);
    EXPECT_EQ(Gaps()[0].kind, EventKind::kGap);
    EXPECT_EQ(Gaps()[0].text, "the gateway did not run");
    EXPECT_LE(*Gaps()[0].begin, before);
    EXPECT_GE(Gaps()[0].time, before);
}

TEST_F(WriterTest, APlaceThatCannotBeWrittenIsToldAndTriedAgain) {
    const auto writer = Make(SettingsOf(folder / "later/h.db"));
    EXPECT_EQ(PartNow().state, PartState::kFailed);
    EXPECT_EQ(PartNow().text, folder / "later/h.db" + ": unable to open database file; results are not kept");
    writer->Start();
    writer->Keep(ResultOf(1, "item", "lost"));
    writer->Settle(60s);
    EXPECT_EQ(writer->LostEvents(), 1U);
    std::filesystem::create_directory(folder.Path() / "later");
    ASSERT_TRUE(Eventually([&] { return PartNow().state == PartState::kOk; }));
    writer->Keep(ResultOf(2, "item", "kept"));
    writer->Settle(60s);
    EXPECT_EQ(SeqsOf(folder / "later/h.db"), (std::vector<std::uint64_t>{2}));
    ASSERT_EQ(Gaps().size(), 1U);
    EXPECT_EQ(Gaps()[0].text, "nothing could be kept: unable to open database file");
}

// It does not write yet, as one whose disk hangs.
TEST_F(WriterTest, WhatIsTooMuchIsAGap) {
    const auto writer = Make(SettingsOf(folder / "h.db"));
    parts.Set("history", PartState::kOk);
    for (std::uint64_t seq = 1; seq <= 8192 + 5; ++seq) {
        writer->Keep(ResultOf(seq, "item", "success"));
    }
    EXPECT_EQ(writer->LostEvents(), 5U);
    EXPECT_EQ(PartNow().state, PartState::kDegraded);
    EXPECT_EQ(PartNow().text, folder / "h.db" + ": the disk is too slow; results are not kept");
    writer->Start();
    ASSERT_TRUE(Eventually([&] { return Gaps().size() == 1; }));
    EXPECT_EQ(Gaps()[0].text, "more than the disk could take");
    EXPECT_EQ(Gaps()[0].begin, ResultOf(8193, "", "").time);
    EXPECT_TRUE(Eventually([&] { return PartNow().state == PartState::kOk; }));
    EXPECT_EQ((*history::Reader::Open(folder / "h.db"))->Extent()->last, 8192U);
}

TEST_F(WriterTest, OldRowsGoByThemselves) {
    auto settings = SettingsOf(folder / "h.db");
    settings.retention.age = 1h;
    const auto writer = Make(settings);
    writer->Start();
    Event fresh = ResultOf(2, "item", "success");
    fresh.time = std::chrono::system_clock::now();
    writer->Keep(ResultOf(1, "item", "success"));
    writer->Keep(fresh);
    EXPECT_TRUE(Eventually([&] { return SeqsOf(folder / "h.db") == std::vector<std::uint64_t>{2}; }));
}

TEST_F(WriterTest, AClockThatIsSetMakesNothingOld) {
    auto settings = SettingsOf(folder / "h.db");
    settings.retention.age = 24h;
    std::atomic<std::chrono::seconds> added{0s};
    std::atomic<int> looks{0};
    settings.clock = [&] {
        ++looks;
        return std::chrono::system_clock::now() + added.load();
    };
    const auto writer = Make(settings);
    writer->Start();
    Event fresh = ResultOf(1, "item", "success");
    fresh.time = std::chrono::system_clock::now();
    writer->Keep(fresh);
    writer->Settle(60s);
    added = 24h * 365;
    const int before = looks;
    ASSERT_TRUE(Eventually([&] { return looks > before + 2; }));
    EXPECT_EQ(SeqsOf(folder / "h.db"), std::vector<std::uint64_t>{1});
    // Set right again: what is old goes.
    added = 0s;
    writer->Keep(ResultOf(2, "item", "old"));
    EXPECT_TRUE(Eventually([&] { return SeqsOf(folder / "h.db") == std::vector<std::uint64_t>{1}; }));
}

class WriterOnAFullDisk : public WriterTest {
protected:
    static void SetUpTestSuite() { support::BecomeOwnRoot(); }
};

TEST_F(WriterOnAFullDisk, TheOldestGoAndItSaysSo) {
    const SmallDisk small;
    auto settings = SettingsOf(small.Path() + "/h.db");
    settings.signPeriod = 60s;
    const auto writer = Make(settings);
    writer->Start();
    std::uint64_t seq = 0;
    const auto keepMany = [&] {
        for (int i = 0; i < 500; ++i) {
            writer->Keep(ResultOf(++seq, "item", "success", std::string(120, 'w')));
        }
        writer->Settle(60s);
    };
    while (PartNow().state == PartState::kOk && seq < 100000) {
        keepMany();
    }
    EXPECT_EQ(PartNow().state, PartState::kDegraded);
    EXPECT_TRUE(PartNow().text.ends_with("the disk is full; the oldest results go, so that new ones are kept"))
        << PartNow().text;
    for (int i = 0; i < 20; ++i) {
        keepMany();
    }
    EXPECT_EQ(writer->LostEvents(), 0U);
    const auto extent = (*history::Reader::Open(small.Path() + "/h.db"))->Extent();
    EXPECT_EQ(extent->last, seq);
    EXPECT_EQ(extent->count, extent->last - extent->first + 1);
    writer->Stop();
}

TEST_F(WriterTest, ADamagedHistoryIsSaidToBeSetAside) {
    WriteFile(folder / "h.db", std::string(8192, 'x'));
    const auto writer = Make(SettingsOf(folder / "h.db"));
    writer->Start();
    ASSERT_TRUE(Eventually([&] { return PartNow().state == PartState::kDegraded; }));
    EXPECT_EQ(PartNow().text,
              "the history was damaged and is set aside as " + folder / "h.db" + ".damaged; a new one has begun");
}

}  // namespace
