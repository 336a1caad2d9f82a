// The history's database: what is kept, found, let go, and what survives.
#include "history/store.h"

#include <csignal>
#include <filesystem>

#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "history_test.h"

using namespace ominspect;
using namespace ominspect::gateway;
using namespace support;
using namespace std::chrono_literals;

namespace {

using Seqs = std::vector<std::uint64_t>;
const TimePoint kNow{std::chrono::seconds(2000000)};

class StoreTest : public testing::Test {
protected:
    void Write(const std::vector<Event>& events) {
        const auto error = store->Write(events, kNow);
        EXPECT_FALSE(error) << error->text;
    }
    Seqs Found(const history::Filter& filter) const { return SeqsOf(path, filter); }

    const TempFolder folder;
    const std::string path = folder / "h.db";
    std::unique_ptr<Store> store = OpenStore(path);
};

TEST_F(StoreTest, KeepsAllOfAnEvent) {
    Event event = ResultOf(5, "disk\xff", "warn", "a\x01 b");
    event.begin = TimePoint(1700000000123ms);
    event.duration = 456ms;
    event.cause = "page";
    Event server;
    server.kind = EventKind::kServer;
    server.seq = 6;
    server.status = "away";
    Write({event, server});
    const auto rows = RowsOf(path);
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0].kind, history::Kind::kServer);
    EXPECT_EQ(rows[0].status, "away");
    EXPECT_FALSE(rows[0].begin);
    EXPECT_FALSE(rows[0].duration);
    EXPECT_EQ(rows[1].item, "disk\xEF\xBF\xBD");
    EXPECT_EQ(rows[1].text, "a\x01 b");
    EXPECT_EQ(rows[1].begin, event.begin);
    EXPECT_EQ(rows[1].duration, event.duration);
    EXPECT_EQ(rows[1].cause, "page");
    EXPECT_EQ(store->LastSeq(), 6U);
}

TEST_F(StoreTest, FindsByItemStatusTimeAndPlace) {
    Event gap;
    gap.kind = EventKind::kGap;
    gap.seq = 4;
    gap.time = ResultOf(4, "", "").time;
    Event busy;
    busy.kind = EventKind::kBusy;
    busy.seq = 5;
    busy.time = ResultOf(5, "", "").time;
    Write({ResultOf(1, "a", "success"), ResultOf(2, "b", "fail"), ResultOf(3, "a", "fail"), gap, busy,
           ResultOf(6, "a", "success")});
    EXPECT_EQ(Found({}), (Seqs{6, 5, 4, 3, 2, 1}));
    history::Filter item;
    item.item = "a";
    EXPECT_EQ(Found(item), (Seqs{6, 4, 3, 1})) << "a gap belongs to every item";
    item.status = "fail";
    EXPECT_EQ(Found(item), (Seqs{3}));
    history::Filter time;
    time.since = ResultOf(2, "", "").time;
    time.until = ResultOf(5, "", "").time;
    EXPECT_EQ(Found(time), (Seqs{5, 4, 3, 2}));
    history::Filter page;
    page.before = 6;
    page.limit = 2;
    EXPECT_EQ(Found(page), (Seqs{5, 4}));
    page.before.reset();
    page.after = 2;
    page.isOldestFirst = true;
    EXPECT_EQ(Found(page), (Seqs{3, 4}));
}

TEST_F(StoreTest, KnowsTheLastResultOfEachItem) {
    Write({ResultOf(1, "a", "success", "old"), ResultOf(2, "a", "fail", "new"), ResultOf(3, "a", "idle"),
           ResultOf(4, "b", "idle"), ResultOf(5, "c", "warn")});
    auto reader = history::Reader::Open(path);
    ASSERT_TRUE(reader);
    EXPECT_EQ((*reader)->LastResult("a")->value().text, "new");
    EXPECT_FALSE(*(*reader)->LastResult("b")) << "a reset is no result";
    EXPECT_FALSE(*(*reader)->LastResult("unknown"));
    const auto all = (*reader)->LastResults();
    ASSERT_EQ(all->size(), 2U);
    EXPECT_EQ((*all)[0].seq, 2U);
    EXPECT_EQ((*all)[1].seq, 5U);
    EXPECT_EQ(*(*reader)->Bus(), "system");
    EXPECT_EQ((*reader)->Extent()->first, 1U);
    EXPECT_EQ((*reader)->Extent()->last, 5U);
    EXPECT_EQ((*reader)->Extent()->count, 5U);
}

TEST_F(StoreTest, CanBeReadByWhoMayNotWriteWhenNobodyHasItOpen) {
    Write({ResultOf(1, "a", "success")});
    store.reset();
    const pid_t child = fork();
    if (child == 0) {
        std::filesystem::permissions(folder.Path(), std::filesystem::perms(0755));
        for (const char* suffix : {"", "-wal", "-shm"}) {
            std::filesystem::permissions(path + suffix, std::filesystem::perms(0644));
        }
        const bool isOther = geteuid() != 0 || setuid(65534) == 0;
        auto reader = history::Reader::Open(path);
        const auto rows = reader ? (*reader)->Find({}) : reader.Failure();
        _exit(isOther && rows && rows->size() == 1 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(StoreTest, WhatIsTooOldGoes) {
    Write({ResultOf(1, "a", "x"), ResultOf(2, "a", "x"), ResultOf(3, "a", "x")});
    Retention retention;
    retention.age = 1h;
    const auto more = store->Retain(retention, ResultOf(2, "", "").time + 1h + 1ms);
    ASSERT_TRUE(more);
    EXPECT_FALSE(*more);
    EXPECT_EQ(Found({}), (Seqs{3}));
}

TEST_F(StoreTest, WhatIsTooMuchGoesOldestFirst) {
    std::vector<Event> events;
    for (std::uint64_t seq = 1; seq <= 4000; ++seq) {
        events.push_back(ResultOf(seq, "item", "success", std::string(120, 'x')));
    }
    Write(events);
    Retention retention;
    retention.bytes = 400 << 10;
    ASSERT_GT(store->Bytes(), retention.bytes);
    while (*store->Retain(retention, kNow)) {
    }
    EXPECT_LE(store->Bytes(), retention.bytes);
    EXPECT_GT(store->Bytes(), retention.bytes / 2);
    const auto extent = (*history::Reader::Open(path))->Extent();
    EXPECT_EQ(extent->last, 4000U);
    EXPECT_EQ(extent->count, extent->last - extent->first + 1);
}

TEST_F(StoreTest, ADamagedDatabaseIsSetAsideAndANewOneBegins) {
    Write({ResultOf(1, "a", "x")});
    store.reset();
    WriteFile(path, "this is no database, and long enough to be looked at as one: " + std::string(4096, 'x'));
    bool setAside = false;
    const auto fresh = Store::Open(path, "system", setAside);
    ASSERT_TRUE(fresh) << fresh.Failure().text;
    EXPECT_TRUE(setAside);
    EXPECT_EQ((*fresh)->LastSeq(), 0U);
    EXPECT_TRUE(Contents(path + ".damaged").starts_with("this is no database"));
}

TEST_F(StoreTest, RemembersUntilWhenItWasWatched) {
    EXPECT_FALSE(store->WatchedUntil());
    Write({});
    store.reset();
    EXPECT_EQ(OpenStore(path)->WatchedUntil(), kNow);
}

// A writer that is killed at any moment: whatever it said was kept is there, and the file is whole.
TEST_F(StoreTest, NothingThatWasKeptIsLostWithTheProcess) {
    store.reset();
    std::uint64_t told = 0;
    for (int round = 0; round < 12; ++round) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            bool setAside = false;
            auto own = Store::Open(path, "system", setAside);
            for (std::uint64_t seq = own ? (*own)->LastSeq() + 1 : 0; own; ++seq) {
                if ((*own)->Write(std::vector<Event>{ResultOf(seq, "item", "success", std::string(100, 'y'))}, kNow) ||
                    write(ends[1], &seq, sizeof seq) != sizeof seq) {
                    break;
                }
            }
            _exit(1);
        }
        close(ends[1]);
        const std::uint64_t wanted = told + 1 + static_cast<std::uint64_t>(round) * 37;
        while (told < wanted && read(ends[0], &told, sizeof told) == sizeof told) {
        }
        ASSERT_EQ(kill(child, SIGKILL), 0);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        while (read(ends[0], &told, sizeof told) == sizeof told) {
        }
        close(ends[0]);
        ASSERT_GE(told, wanted);
        const auto again = OpenStore(path);
        ASSERT_TRUE(again);
        EXPECT_GE(again->LastSeq(), told);
        EXPECT_LE(again->LastSeq(), told + 1);
        const auto extent = (*history::Reader::Open(path))->Extent();
        EXPECT_EQ(extent->count, extent->last);
    }
}

// A real disk that is really full.
TEST(StoreOnAFullDisk, TheOldestGoFirstThenItStopsAndGoesOnAgain) {
    support::BecomeOwnRoot();
    const SmallDisk small;
    const std::string disk = small.Path();
    const std::string path = disk + "/h.db";
    {
        auto store = OpenStore(path);
        std::uint64_t seq = 0;
        const auto next = [&] {
            ++seq;
            return std::vector<Event>{ResultOf(seq, "item", "success", std::string(120, 'z'))};
        };
        std::optional<Error> error;
        while (seq < 100000 && !(error = store->Write(next(), kNow))) {
        }
        ASSERT_TRUE(error);
        ASSERT_TRUE(Store::IsFull(*error)) << error->text;
        const std::uint64_t full = seq--;

        // It goes on within the room that it has, for as long as one likes.
        std::uint64_t rooms = 0;
        while (seq < full + 20000) {
            error = store->Write(next(), kNow);
            if (error) {
                ASSERT_TRUE(Store::IsFull(*error)) << error->text;
                ASSERT_TRUE(store->MakeRoom());
                --seq;
                ++rooms;
                ASSERT_LT(rooms, 20000U);
            }
        }
        EXPECT_GT(rooms, 0U);
        auto extent = (*history::Reader::Open(path))->Extent();
        EXPECT_EQ(extent->last, full + 20000);
        EXPECT_EQ(extent->count, extent->last - extent->first + 1) << "the oldest, and no others";
        EXPECT_GT(extent->count, 500U);

        // Somebody else takes the rest: what is kept stays, and the file is whole.
        EXPECT_FALSE(store->Grow());
        std::filesystem::remove(path + ".room");
        {
            std::ofstream rest(disk + "/rest", std::ios::binary);
            const std::string block(4096, 'r');
            while (rest.write(block.data(), 4096) && rest.flush()) {
            }
        }
        store.reset();
        store = OpenStore(path);
        ASSERT_TRUE(store);
        EXPECT_EQ(store->LastSeq(), full + 20000);
        std::filesystem::remove(disk + "/rest");
    }
    // The disk is well again.
    ASSERT_EQ(mount("tmpfs", disk.c_str(), "tmpfs", MS_REMOUNT, "size=8m,mode=0700"), 0);
    {
        const auto store = OpenStore(path);
        EXPECT_TRUE(store->Grow());
        const std::uint64_t last = store->LastSeq();
        for (std::uint64_t seq = last + 1; seq <= last + 10000; ++seq) {
            ASSERT_FALSE(
                store->Write(std::vector<Event>{ResultOf(seq, "item", "success", std::string(120, 'z'))}, kNow));
        }
        EXPECT_GT(store->Bytes(), 2U << 20U);
    }
}

}  // namespace
