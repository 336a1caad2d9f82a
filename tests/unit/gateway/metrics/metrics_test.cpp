// What Prometheus is shown, made of events and the picture.
#include "metrics/metrics.h"

#include <gtest/gtest.h>

#include <string>

using namespace ominspect;
using namespace ominspect::gateway;
using namespace std::chrono_literals;

namespace {

class MetricsTest : public testing::Test {
protected:
    // As the feed does.
    void Tell(const Event& event) {
        picture.Apply(event);
        metrics.Apply(event);
    }

    void TellServer(const std::string& status) {
        Event event;
        event.kind = EventKind::kServer;
        event.status = status;
        Tell(event);
    }

    void TellResult(const std::string& item, const std::string& status,
                    std::optional<std::chrono::milliseconds> duration = std::nullopt) {
        Event event;
        event.kind = EventKind::kResult;
        event.item = item;
        event.status = status;
        event.time = TimePoint(1763784000125ms);
        event.duration = duration;
        Tell(event);
    }

    std::string Document() { return *metrics.Document(now); }

    bool Has(const std::string& line) { return ("\n" + Document()).find("\n" + line + "\n") != std::string::npos; }

    // How many lines begin so.
    int Count(const std::string& begin) {
        const std::string text = "\n" + Document();
        int count = 0;
        for (std::size_t at = 0; (at = text.find("\n" + begin, at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }

    Picture picture;
    Parts parts{[](const std::string&, const Part&) {}};
    GatewayFigures figures;
    Metrics metrics{{picture, parts, "1.2.3", [this] { return figures; }}};
    Metrics::Clock::time_point now;
};

TEST_F(MetricsTest, TheServerIsShown) {
    EXPECT_TRUE(Has("ominspect_server_up 0"));
    TellServer("up");
    EXPECT_TRUE(Has("ominspect_server_up 1"));
    EXPECT_EQ(Count("ominspect_server_busy"), 0) << "it is not known";
    Event busy;
    busy.kind = EventKind::kBusy;
    busy.status = "busy";
    Tell(busy);
    EXPECT_TRUE(Has("ominspect_server_busy 1"));
    busy.status = "idle";
    Tell(busy);
    EXPECT_TRUE(Has("ominspect_server_busy 0"));
    EXPECT_TRUE(Has("ominspect_server_restarts_total 0"));
    TellServer("away");
    TellServer("up");
    EXPECT_TRUE(Has("ominspect_server_restarts_total 1"));
}

TEST_F(MetricsTest, ItemsAreShownWithStateAndLastResult) {
    client::Inventory inventory{{}, 5, {"mute"}};
    inventory.items.push_back({"disk", client::ConfiguredItem{"disk", "error", true}, {}});
    inventory.items.push_back({"own", std::nullopt, {client::ItemOwner{"owner", 0ms, true}}});
    picture.SetInventory(inventory);
    EXPECT_TRUE(Has("ominspect_configured_items 5"));
    EXPECT_TRUE(Has("ominspect_silent_processes 1"));
    EXPECT_TRUE(Has(R"(ominspect_item_info{item="disk",level="error",mode="sync"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_item_info{item="own"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_item_owners{item="disk"} 0)"));
    EXPECT_TRUE(Has(R"(ominspect_item_owners{item="own"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_item_state{item="disk",state="unknown"} 1)"));
    EXPECT_EQ(Count("ominspect_item_last_"), 0);

    TellResult("disk", "warn", 1250ms);
    EXPECT_TRUE(Has(R"(ominspect_item_state{item="disk",state="not-idle"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_item_last_status{item="disk",status="warn"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_item_last_run_timestamp_seconds{item="disk"} 1763784000.125)"));
    EXPECT_TRUE(Has(R"(ominspect_item_last_run_duration_seconds{item="disk"} 1.25)"));
    TellResult("disk", "success");
    EXPECT_TRUE(Has(R"(ominspect_item_last_status{item="disk",status="success"} 1)"));
    EXPECT_EQ(Count("ominspect_item_last_status{"), 1) << "one status at a time";
    EXPECT_EQ(Count("ominspect_item_last_run_duration_seconds{"), 0) << "of this run no begin was seen";
}

TEST_F(MetricsTest, RunsAreCountedByStatusAndDuration) {
    TellResult("disk", "success", 10ms);
    TellResult("disk", "success", 3s);
    TellResult("disk", "fail");
    TellResult("disk", "running", 1s);
    TellResult("net\"1", "odd \\ word", 400s);
    EXPECT_TRUE(Has(R"(ominspect_item_runs_total{item="disk",status="success"} 2)"));
    EXPECT_TRUE(Has(R"(ominspect_item_runs_total{item="disk",status="fail"} 1)"));
    EXPECT_EQ(Count(R"(ominspect_item_runs_total{item="disk")"), 2);
    EXPECT_TRUE(Has(R"(ominspect_item_runs_total{item="net\"1",status="odd \\ word"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_item_run_duration_seconds_bucket{item="disk",le="0.05"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_item_run_duration_seconds_bucket{item="disk",le="1"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_item_run_duration_seconds_bucket{item="disk",le="5"} 2)"));
    EXPECT_TRUE(Has(R"(ominspect_item_run_duration_seconds_bucket{item="disk",le="+Inf"} 2)"));
    EXPECT_TRUE(Has(R"(ominspect_item_run_duration_seconds_sum{item="disk"} 3.01)"));
    EXPECT_TRUE(Has(R"(ominspect_item_run_duration_seconds_count{item="disk"} 2)"));
    EXPECT_TRUE(Has(R"(ominspect_item_run_duration_seconds_bucket{item="net\"1",le="300"} 0)"));
    EXPECT_TRUE(Has(R"(ominspect_item_run_duration_seconds_bucket{item="net\"1",le="+Inf"} 1)"));
}

TEST_F(MetricsTest, WordsThatOwnersInventDoNotGrowWithoutBound) {
    for (int i = 0; i < 100; ++i) {
        TellResult("disk", "word" + std::to_string(i));
    }
    TellResult("disk", "unknown");
    EXPECT_TRUE(Has(R"(ominspect_item_runs_total{item="disk",status="word0"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_item_runs_total{item="disk",status="unknown"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_item_runs_total{item="disk",status="other"} 93)"));
    EXPECT_EQ(Count("ominspect_item_runs_total{"), 9);
    TellResult("disk", "word99");
    EXPECT_TRUE(Has(R"(ominspect_item_last_status{item="disk",status="other"} 1)"));
}

TEST_F(MetricsTest, ItemsDoNotGrowWithoutBound) {
    for (int i = 0; i < 4200; ++i) {
        TellResult("item" + std::to_string(i), "success");
    }
    TellResult("item0", "success");
    EXPECT_EQ(Count("ominspect_item_runs_total{"), 4096);
    EXPECT_TRUE(Has(R"(ominspect_item_runs_total{item="item0",status="success"} 2)"));
}

TEST_F(MetricsTest, OnlyAnOwnerIsBelievedWhatAnItemMeasures) {
    client::Inventory inventory{{}, 0, {}};
    inventory.items.push_back({"disk", std::nullopt, {{"owner", 0ms, true}, {"second", 0ms, true}}});
    inventory.items.push_back({"load", std::nullopt, {{"other", 0ms, true}}});
    picture.SetInventory(inventory);
    metrics.TakePerfData("owner", {"disk", {{"used", 7, "B", "", "", {}, {}}}});
    EXPECT_TRUE(Has(R"(ominspect_perfdata_bytes{item="disk",label="used"} 7)"));
    metrics.TakePerfData("other", {"disk", {{"used", 8, "B", "", "", {}, {}}}});
    metrics.TakePerfData("owner", {"load", {{"load1", 1, "", "", "", {}, {}}}});
    metrics.TakePerfData("owner", {"absent", {{"x", 1, "", "", "", {}, {}}}});
    EXPECT_TRUE(Has(R"(ominspect_perfdata_bytes{item="disk",label="used"} 7)"));
    EXPECT_EQ(Count("ominspect_perfdata_value{"), 0);
    EXPECT_TRUE(Has("ominspect_gateway_perfdata_events_total 4"));
    EXPECT_TRUE(Has("ominspect_gateway_perfdata_refused_total 3"));

    inventory.items[0].owners.erase(inventory.items[0].owners.begin());
    picture.SetInventory(inventory);
    metrics.ForgetFormerOwners();
    EXPECT_EQ(Count("ominspect_perfdata_bytes{"), 0) << "the process does not own it any more";
    metrics.TakePerfData("second", {"disk", {{"used", 9, "B", "", "", {}, {}}}});
    metrics.ForgetFormerOwners();
    EXPECT_TRUE(Has(R"(ominspect_perfdata_bytes{item="disk",label="used"} 9)"));
}

TEST_F(MetricsTest, MoreValuesThanCanBeShownAreRefused) {
    client::Inventory inventory{{}, 0, {}};
    client::PerfData data{"", {}};
    for (int i = 0; i < 64; ++i) {
        data.values.push_back({"v" + std::to_string(i), 1, "", "", "", {}, {}});
    }
    for (int i = 0; i < 65; ++i) {
        inventory.items.push_back({"item" + std::to_string(i), std::nullopt, {{"owner", 0ms, true}}});
    }
    picture.SetInventory(inventory);
    for (int i = 0; i < 65; ++i) {
        EXPECT_EQ(metrics.IsFull(), i >= 64) << i;
        data.item = "item" + std::to_string(i);
        metrics.TakePerfData("owner", data);
    }
    EXPECT_EQ(Count("ominspect_perfdata_value{"), 4096);
    EXPECT_TRUE(Has("ominspect_gateway_perfdata_refused_total 1"));
    metrics.TakePerfData("owner", {"item0", {}});
    EXPECT_FALSE(metrics.IsFull());
    metrics.TakePerfData("owner", data);
    EXPECT_TRUE(Has("ominspect_gateway_perfdata_refused_total 1"));
}

TEST_F(MetricsTest, TheGatewayShowsItself) {
    parts.Set("http", PartState::kOk);
    parts.Set("history", PartState::kFailed, "the disk");
    figures = {11, 12, 13, 14, 15, 16};
    TellServer("up");
    EXPECT_TRUE(Has(R"(ominspect_gateway_info{version="1.2.3"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_gateway_part_state{part="http",state="ok"} 1)"));
    EXPECT_TRUE(Has(R"(ominspect_gateway_part_state{part="history",state="failed"} 1)"));
    EXPECT_TRUE(Has("ominspect_gateway_events_total 1"));
    EXPECT_TRUE(Has("ominspect_gateway_gaps_total 0"));
    EXPECT_TRUE(Has("ominspect_gateway_events_lost_total 11"));
    EXPECT_TRUE(Has("ominspect_gateway_listeners 12"));
    EXPECT_TRUE(Has("ominspect_gateway_listeners_dropped_total 13"));
    EXPECT_TRUE(Has("ominspect_gateway_connections 14"));
    EXPECT_TRUE(Has("ominspect_gateway_history_bytes 15"));
    EXPECT_TRUE(Has("ominspect_gateway_events_not_kept_total 16"));
    Event gap;
    gap.kind = EventKind::kGap;
    Tell(gap);
    EXPECT_TRUE(Has("ominspect_gateway_gaps_total 1"));
    EXPECT_EQ(Count("process_resident_memory_bytes 0"), 0);
    EXPECT_EQ(Count("process_resident_memory_bytes "), 1);
    EXPECT_EQ(Count("process_cpu_seconds_total "), 1);
    EXPECT_EQ(Count("process_start_time_seconds "), 1);
    figures.historyBytes.reset();
    now += 1s;
    EXPECT_EQ(Count("ominspect_gateway_history_bytes"), 0) << "without a history";
}

TEST_F(MetricsTest, ADocumentIsMadeAnewWhenSomethingHappenedAndEachSecond) {
    const auto first = metrics.Document(now);
    figures.listeners = 3;
    EXPECT_EQ(metrics.Document(now + 999ms), first);
    const auto second = metrics.Document(now + 1s);
    EXPECT_NE(second, first);
    EXPECT_NE(second->find("ominspect_gateway_listeners 3\n"), std::string::npos);
    Event passing;
    metrics.Apply(passing);
    const auto third = metrics.Document(now + 1s);
    EXPECT_NE(third, second);
    picture.SetLast("disk", {"success", "", "", {}, {}, {}, 1});
    EXPECT_NE(metrics.Document(now + 1s), third);
}

TEST_F(MetricsTest, ADocumentThatIsAskedForNowAndThenDoesNotStay) {
    std::weak_ptr<const std::string> text = metrics.Document(now);
    EXPECT_TRUE(text.expired());
    text = metrics.Document(now + 15s);
    EXPECT_TRUE(text.expired());
}

TEST_F(MetricsTest, ADocumentThatIsAskedForAgainAndAgainStaysAsLongAsItIs) {
    (void)metrics.Document(now);
    const std::weak_ptr<const std::string> text = metrics.Document(now + 999ms);
    EXPECT_EQ(metrics.Document(now + 1500ms), text.lock());
    metrics.Tidy(now + 1998ms);
    EXPECT_FALSE(text.expired());
    metrics.Tidy(now + 1999ms);
    EXPECT_TRUE(text.expired());
}

}  // namespace
