// What the typed interface shows of the picture, and what of it has changed.
#include "dbus/shown.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace ominspect;
using namespace ominspect::gateway;
using namespace ominspect::gateway::dbus;
using namespace std::chrono_literals;

namespace {

ItemView Owned(const std::string& name) {
    ItemView view;
    view.name = name;
    view.owners = {client::ItemOwner{"one", 0ms, true}, client::ItemOwner{"two\xff", 0ms, true}};
    view.state = ItemState::kIdle;
    return view;
}

State With(const std::vector<ItemView>& views) {
    State state;
    for (const ItemView& view : views) {
        state.order.push_back(view.name);
        state.items[view.name] = view;
    }
    return state;
}

std::string Joined(const std::vector<const char*>& names) {
    std::string all;
    for (const char* name : names) {
        all += std::string(all.empty() ? "" : " ") + name;
    }
    return all;
}

TEST(DBusShown, PathsAreThoseOfSdBus) {
    EXPECT_EQ(PathOf("disk"), "/com/kivo/Inspect1/item/disk");
    EXPECT_EQ(PathOf("bsp_mainboard_ft"), "/com/kivo/Inspect1/item/bsp_5fmainboard_5fft");
    EXPECT_EQ(PathOf("9 \xff"), "/com/kivo/Inspect1/item/_39_20_ff");
}

TEST(DBusShown, AnItemIsShownWhileSomebodyHasIt) {
    ItemView configured;
    configured.name = "configured";
    configured.configuration = client::ConfiguredItem{"configured", "error", true};
    ItemView runs;
    runs.name = "runs";
    runs.state = ItemState::kRunning;
    ItemView gone;
    gone.name = "gone";
    gone.last = LastResult{};
    const ShownItems items = ItemsOf(With({Owned("owned"), configured, runs, gone}));
    ASSERT_EQ(items.size(), 3U);
    EXPECT_EQ(items.count(PathOf("gone")), 0U);
    const ShownItem& item = items.at(PathOf("configured"));
    EXPECT_EQ(item.name + " " + item.level + " " + item.mode + " " + item.state, "configured error sync unknown");
    EXPECT_EQ(items.at(PathOf("runs")).state, "running");
}

TEST(DBusShown, TextsBecomeUtf8AndTimesMicroseconds) {
    ItemView view = Owned("b\xc3");
    view.runningSince = TimePoint(3s);
    view.last = LastResult{"fail\xff", "text\xc3", "who\xff", TimePoint(5s), TimePoint(4s), 1000ms, 7};
    const ShownItem item = ItemsOf(With({view})).begin()->second;
    EXPECT_EQ(item.name, "b\xef\xbf\xbd");
    EXPECT_EQ(item.owners, (std::vector<std::string>{"one", "two\xef\xbf\xbd"}));
    EXPECT_EQ(item.lastStatus, "fail\xef\xbf\xbd");
    EXPECT_EQ(item.lastText, "text\xef\xbf\xbd");
    EXPECT_EQ(item.lastCause, "who\xef\xbf\xbd");
    EXPECT_EQ(item.runningSince, 3'000'000U);
    EXPECT_EQ(item.lastBegin, 4'000'000U);
    EXPECT_EQ(item.lastEnd, 5'000'000U);
    EXPECT_EQ(Microseconds(TimePoint(-1s)), 0U);
}

TEST(DBusShown, EachPropertyThatDiffersIsNamed) {
    const ShownItem before;
    EXPECT_EQ(Joined(Differences(before, before)), "");
    const ShownItem now{"n", "l", "m", {"o"}, "s", 1, "ls", "lt", "lc", 2, 3};
    EXPECT_EQ(Joined(Differences(before, now)),
              "Level Mode Owners State RunningSince LastStatus LastText LastCause LastBegin LastEnd");
    ShownItem one = now;
    one.lastText = "other";
    EXPECT_EQ(Joined(Differences(now, one)), "LastText");
    EXPECT_EQ(Joined(Differences(ShownServer{false, false}, ShownServer{true, false})), "ServerUp");
    EXPECT_EQ(Joined(Differences(ShownServer{true, false}, ShownServer{true, true})), "ServerBusy");
}

OperationView From10To20(OperationKind kind) {
    OperationView operation;
    operation.kind = kind;
    operation.items = {"a", "b"};
    operation.begin = TimePoint(10s);
    operation.end = TimePoint(20s);
    return operation;
}

TEST(DBusShown, ARunsTimesAreThoseThatTheServerTold) {
    const OperationView operation = From10To20(OperationKind::kRun);
    const auto timesWith = [&](std::uint64_t running, std::uint64_t begin, std::uint64_t end) {
        ShownItem item;
        item.runningSince = running;
        item.lastBegin = begin;
        item.lastEnd = end;
        const Times times = TimesOf(operation, &item);
        return std::to_string(times.begin) + " " + std::to_string(times.end);
    };
    EXPECT_EQ(timesWith(0, 12'000'000, 13'000'000), "12000000 13000000");
    EXPECT_EQ(timesWith(0, 9'000'000, 13'000'000), "10000000 20000000") << "somebody else's, before";
    EXPECT_EQ(timesWith(0, 21'000'000, 22'000'000), "10000000 20000000") << "and afterwards";
    EXPECT_EQ(timesWith(14'000'000, 1, 2), "14000000 20000000") << "its end is not told yet";
    EXPECT_EQ(TimesOf(operation, nullptr).begin, 10'000'000U);
    EXPECT_EQ(TimesOf(operation, nullptr).end, 20'000'000U);
}

TEST(DBusShown, AGroupIsDoneItemByItem) {
    OperationView operation = From10To20(OperationKind::kGroup);
    operation.end.reset();
    ShownItems items{{PathOf("a"), {}}, {PathOf("c"), {}}};
    items[PathOf("a")].lastEnd = 9'999'999;
    EXPECT_EQ(DoneOf(operation, items), 0U) << "a result of before";
    items[PathOf("a")].lastEnd = 10'000'000;
    EXPECT_EQ(DoneOf(operation, items), 1U);
    operation.results.resize(2);
    EXPECT_EQ(DoneOf(operation, items), 2U);
    OperationView run = From10To20(OperationKind::kRun);
    EXPECT_EQ(DoneOf(run, items), 0U);
}

TEST(DBusShown, ErrorsHaveNames) {
    EXPECT_STREQ(NameOf(ErrorCode::kInvalidArgument), "com.kivo.Inspect1.Error.InvalidArgument");
    EXPECT_STREQ(NameOf(ErrorCode::kBusUnreachable), "com.kivo.Inspect1.Error.BusUnreachable");
    EXPECT_STREQ(NameOf(ErrorCode::kServerAbsent), "com.kivo.Inspect1.Error.ServerAbsent");
    EXPECT_STREQ(NameOf(ErrorCode::kTimeLimit), "com.kivo.Inspect1.Error.TimeLimit");
    EXPECT_STREQ(NameOf(ErrorCode::kRefused), "com.kivo.Inspect1.Error.Refused");
    EXPECT_STREQ(NameOf(ErrorCode::kGroupBusy), "com.kivo.Inspect1.Error.Refused");
    EXPECT_STREQ(NameOf(ErrorCode::kCancelled), "com.kivo.Inspect1.Error.Cancelled");
    EXPECT_STREQ(NameOf(ErrorCode::kDenied), "com.kivo.Inspect1.Error.Denied");
    EXPECT_STREQ(NameOf(ErrorCode::kMalformedReply), "com.kivo.Inspect1.Error.Failed");
}

}  // namespace
