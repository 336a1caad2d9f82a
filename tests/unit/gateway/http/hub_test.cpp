// The listeners to the event stream: what they get, what they missed, and what becomes of slow ones.
#include "http/hub.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <semaphore>
#include <thread>

using namespace ominspect;
using namespace ominspect::gateway;

namespace {

Event Numbered(std::uint64_t seq) {
    Event event;
    event.kind = EventKind::kResult;
    event.seq = seq;
    event.item = "disk";
    event.status = "success";
    return event;
}

history::Row RowOf(std::uint64_t seq) {
    history::Row row;
    row.seq = seq;
    row.item = "disk";
    row.status = "success";
    return row;
}

// All that is there.
std::string Taken(Listener& listener, Listener::Taken& last) {
    std::string text;
    char bytes[100];
    std::size_t count = 0;
    while ((last = listener.Take(bytes, sizeof bytes, count)) == Listener::Taken::kSome) {
        text.append(bytes, count);
    }
    return text;
}

std::string Taken(Listener& listener) {
    Listener::Taken last{};
    return Taken(listener, last);
}

constexpr const char* kHelloAt7 = "retry: 2000\nid: 7\nevent: hello\ndata: {\"seq\":7}\n\n";
constexpr const char* kEight =
    "id: 8\nevent: result\ndata: {\"seq\":8,\"time\":\"1970-01-01T00:00:00.000Z\",\"kind\":\"result\","
    "\"item\":\"disk\",\"status\":\"success\",\"text\":\"\"}\n\n";

class HubTest : public testing::Test {
protected:
    std::optional<std::vector<history::Row>> rows;
    std::uint64_t askedAfter = 0;
    int wakes = 0;
    std::function<void()> whileReading = [] {};
    Hub hub{7, [this](std::uint64_t after, std::size_t limit) {
                askedAfter = after;
                whileReading();
                if (rows && rows->size() > limit) {
                    rows->resize(limit);
                }
                return rows;
            }};
    std::shared_ptr<Listener> Add(std::optional<std::uint64_t> after = {}) {
        return hub.Add(after, [this] { ++wakes; });
    }
};

TEST_F(HubTest, AListenerThatIsNotBehindGetsAFrameOfAnyLength) {
    const auto listener = Add();
    (void)Taken(*listener);
    Event longest = Numbered(8);
    longest.text = std::string(1 << 20, 'x');
    hub.Tell(longest);
    EXPECT_NE(Taken(*listener).find(longest.text), std::string::npos);
    hub.Tell(longest);
    hub.Tell(Numbered(9));
    EXPECT_NE(Taken(*listener).find("too slow"), std::string::npos) << "it is behind now";
}

TEST_F(HubTest, AListenerGetsWhatComes) {
    const auto listener = Add();
    EXPECT_EQ(Taken(*listener), kHelloAt7);
    EXPECT_EQ(wakes, 0);
    hub.Tell(Numbered(8));
    EXPECT_EQ(wakes, 1);
    hub.Tick();
    EXPECT_EQ(wakes, 1) << "it is awake";
    EXPECT_EQ(Taken(*listener), std::string(kEight) + ":\n\n");
    Event passing;
    passing.kind = EventKind::kOperation;
    passing.document = "{\"id\":1}";
    hub.Tell(passing);
    EXPECT_EQ(Taken(*listener), "event: operation\ndata: {\"id\":1}\n\n") << "without a number";
    hub.Remove(listener);
    hub.Tell(Numbered(9));
    EXPECT_EQ(Taken(*listener), "");
    EXPECT_EQ(hub.Count(), 0U);
}

TEST_F(HubTest, WhatWasMissedComesFirst) {
    rows = {RowOf(6), RowOf(7)};
    const auto listener = Add(5);
    EXPECT_EQ(askedAfter, 5U);
    const std::string text = Taken(*listener);
    EXPECT_TRUE(text.starts_with("id: 6\nevent: result\n")) << text;
    EXPECT_NE(text.find("id: 7\nevent: result\n"), std::string::npos);
    EXPECT_TRUE(text.ends_with(kHelloAt7)) << text;
    EXPECT_EQ(Taken(*Add(7)), kHelloAt7) << "nothing was missed";
}

TEST_F(HubTest, WhoMissedWhatIsNotKnownIsTold) {
    const std::string reset =
        "retry: 2000\n\nevent: reset\ndata: {\"reason\":\"not all that was missed is known\"}\n\n"
        "id: 7\nevent: hello\ndata: {\"seq\":7}\n\n";
    rows = std::nullopt;
    EXPECT_EQ(Taken(*Add(5)), reset) << "there is no history";
    rows = {RowOf(7)};
    EXPECT_EQ(Taken(*Add(3)), reset) << "some went already";
    EXPECT_EQ(Taken(*Add(99)), reset) << "a number of another life";
    rows.emplace();
    for (std::uint64_t seq = 1; seq <= 600; ++seq) {
        rows->push_back(RowOf(seq));
    }
    EXPECT_EQ(Taken(*Add(0)), reset) << "too much";
}

// The feed and the signs of life go on meanwhile.
TEST_F(HubTest, AHistoryThatWaitsForItsDiskHoldsUpNobody) {
    rows = {RowOf(6), RowOf(7), RowOf(8)};
    const auto other = Add();
    (void)Taken(*other);
    std::binary_semaphore isReading{0};
    std::binary_semaphore isDiskWell{0};
    whileReading = [&] {
        isReading.release();
        isDiskWell.acquire();
    };
    std::shared_ptr<Listener> listener;
    std::thread asking([&] { listener = Add(5); });
    isReading.acquire();
    hub.Tell(Numbered(8));
    hub.Tick();
    EXPECT_EQ(hub.Count(), 2U);
    EXPECT_EQ(Taken(*other), std::string(kEight) + ":\n\n");
    isDiskWell.release();
    asking.join();
    const std::string text = Taken(*listener);
    EXPECT_TRUE(text.starts_with("id: 6\n")) << text;
    EXPECT_TRUE(text.ends_with(std::string(kHelloAt7) + kEight + ":\n\n")) << text;
    EXPECT_EQ(text.find("id: 8\n"), text.rfind("id: 8\n")) << "it is told once";
}

TEST_F(HubTest, OneThatFallsBehindWhileTheHistoryIsReadIsDropped) {
    rows = {RowOf(6), RowOf(7)};
    whileReading = [&] {
        for (std::uint64_t seq = 8; seq < 8 + 600; ++seq) {
            hub.Tell(Numbered(seq));
        }
    };
    Listener::Taken last{};
    const std::string text = Taken(*Add(5), last);
    EXPECT_TRUE(text.starts_with("id: 6\n")) << text;
    EXPECT_TRUE(text.ends_with(std::string(kHelloAt7) + "event: dropped\ndata: {\"reason\":\"too slow\"}\n\n")) << text;
    EXPECT_EQ(last, Listener::Taken::kEnd);
}

TEST_F(HubTest, OneWhoseHistoryHasNoMemoryLeavesNothing) {
    whileReading = [] { throw std::bad_alloc(); };
    EXPECT_THROW((void)Add(5), std::bad_alloc);
    EXPECT_EQ(hub.Count(), 0U);
}

TEST_F(HubTest, ASlowListenerIsDroppedAndToldSoAndOthersAreNot) {
    const auto slow = Add();
    const auto quick = Add();
    char bytes[10];
    std::size_t count = 0;
    EXPECT_EQ(slow->Take(bytes, sizeof bytes, count), Listener::Taken::kSome);  // a part of the first frame
    for (std::uint64_t seq = 8; seq < 8 + 600; ++seq) {
        hub.Tell(Numbered(seq));
        (void)Taken(*quick);
    }
    Listener::Taken last{};
    EXPECT_EQ(std::string(bytes, count) + Taken(*slow, last),
              std::string(kHelloAt7) + "event: dropped\ndata: {\"reason\":\"too slow\"}\n\n");
    EXPECT_EQ(last, Listener::Taken::kEnd);
    EXPECT_EQ(hub.Dropped(), 1U);
    hub.Tell(Numbered(700));
    EXPECT_NE(Taken(*quick).find("id: 700\n"), std::string::npos);
}

TEST_F(HubTest, AreBounded) {
    std::vector<std::shared_ptr<Listener>> all;
    for (int i = 0; i < 500; ++i) {
        all.push_back(Add());
        ASSERT_TRUE(all.back());
    }
    EXPECT_FALSE(Add());
    hub.Remove(all.back());
    EXPECT_TRUE(Add());
}

TEST_F(HubTest, TheEndWakesAndEndsAll) {
    const auto listener = Add();
    (void)Taken(*listener);
    hub.Close();
    EXPECT_EQ(wakes, 1);
    Listener::Taken last{};
    EXPECT_EQ(Taken(*listener, last), "");
    EXPECT_EQ(last, Listener::Taken::kEnd);
    EXPECT_FALSE(Add());
}

}  // namespace
