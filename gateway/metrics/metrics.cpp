// Names follow the rules of Prometheus: base units, "_total" for what only rises. Names of items are labels, and the
// picture bounds how many there are.
#include "metrics/metrics.h"

#include <algorithm>
#include <utility>

#include "metrics/process_figures.h"

namespace ominspect::gateway {
namespace {

// As many as the picture shows.
constexpr std::size_t kMostItems = 4096;
constexpr std::chrono::seconds kFresh{1};

double SecondsOf(TimePoint time) {
    return std::chrono::duration<double>(std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()))
        .count();
}

double SecondsOf(std::chrono::milliseconds duration) {
    return static_cast<double>(duration.count()) / 1000;
}

bool Owns(const State& state, const std::string& process, const std::string& item) {
    const auto found = state.items.find(item);
    return found != state.items.end() &&
           std::any_of(found->second.owners.begin(), found->second.owners.end(),
                       [&](const client::ItemOwner& owner) { return owner.process == process; });
}

}  // namespace

void Metrics::Apply(const Event& event) {
    const std::lock_guard lock(mutex_);
    ++events_;
    ++version_;
    gaps_ += event.kind == EventKind::kGap ? 1 : 0;
    if (event.kind != EventKind::kResult || !history::IsFinal(event.status) ||
        (runs_.size() >= kMostItems && !runs_.contains(event.item))) {
        return;
    }
    Runs& runs = runs_[event.item];
    ++runs.byStatus[words_.NumberOf(event.status)];
    if (event.duration) {
        runs.durations.Add(*event.duration);
    }
}

void Metrics::TakePerfData(const std::string& process, const client::PerfData& perfData) {
    bool isOwner = false;
    context_.picture.Read([&](const State& state) { isOwner = Owns(state, process, perfData.item); });
    const std::lock_guard lock(mutex_);
    ++version_;
    ++perfData_;
    if (!isOwner || !perfValues_.Set(process, perfData)) {
        ++refusedPerfData_;
    }
}

void Metrics::ForgetFormerOwners() {
    const std::lock_guard lock(mutex_);
    context_.picture.Read([this](const State& state) {
        perfValues_.Retain(
            [&state](const std::string& process, const std::string& item) { return Owns(state, process, item); });
    });
    ++version_;
}

bool Metrics::IsFull() {
    const std::lock_guard lock(mutex_);
    return perfValues_.IsFull();
}

Metrics::Text Metrics::Document(Clock::time_point now) {
    const std::lock_guard lock(mutex_);
    const std::uint64_t version = context_.picture.Version();
    Text text = text_ ? text_ : lent_.lock();
    if (!text || version != textVersion_ || version_ != textOwnVersion_ || now - textTime_ >= kFresh) {
        text_.reset();
        text.reset();
        textVersion_ = version;
        textOwnVersion_ = version_;
        textTime_ = now;
        text = std::make_shared<const std::string>(Print());
    }
    text_ = asked_ && now - *asked_ < kFresh ? text : nullptr;
    lent_ = text;
    asked_ = now;
    return text;
}

void Metrics::Tidy(Clock::time_point now) {
    const std::lock_guard lock(mutex_);
    if (now - textTime_ >= kFresh) {
        text_.reset();
    }
}

std::string Metrics::Print() {
    constexpr std::size_t kItemBytes = 1400;
    constexpr std::size_t kOwnBytes = 6000;
    Exposition out(kOwnBytes + runs_.size() * kItemBytes);
    context_.picture.Read([&](const State& state) { PrintItems(out, state); });
    PrintRuns(out);
    perfValues_.Print(out);
    PrintGateway(out);
    return out.Take();
}

void Metrics::PrintItems(Exposition& out, const State& state) {
    out.Gauge("ominspect_server_up", "Whether the inspection server is there.", state.server.isUp ? 1 : 0);
    if (state.server.isBusy) {
        out.Gauge("ominspect_server_busy", "Whether the server runs an item.", *state.server.isBusy ? 1 : 0);
    }
    out.Counter("ominspect_server_restarts_total", "Restarts of the server that the gateway saw.",
                state.server.restarts);
    out.Gauge("ominspect_configured_items", "Items that the server's configuration names.", state.configured);
    out.Gauge("ominspect_silent_processes", "Processes that do not say what they own.",
              static_cast<double>(state.silent.size()));

    out.Family("ominspect_item_info", MetricType::kGauge,
               "1 for each item; one that is not configured has no level and no mode.");
    for (const auto& [name, item] : state.items) {
        const auto& configuration = item.configuration;
        const std::string_view mode = !configuration ? "" : configuration->isSync ? "sync" : "async";
        out.Sample(
            {{"item", name}, {"level", configuration ? std::string_view(configuration->level) : ""}, {"mode", mode}},
            1.0);
    }
    out.Family("ominspect_item_owners", MetricType::kGauge, "Processes that own the item.");
    for (const auto& [name, item] : state.items) {
        out.Sample({{"item", name}}, std::uint64_t{item.owners.size()});
    }
    out.Family("ominspect_item_state", MetricType::kGauge,
               "1 for the state that the item is in: idle, running, not-idle (it holds a result), unknown.");
    for (const auto& [name, item] : state.items) {
        out.Sample({{"item", name}, {"state", WordOf(item.state)}}, 1.0);
    }
    out.Family("ominspect_item_last_status", MetricType::kGauge,
               "1 for the status of the item's last result: success, warn, fail, unknown, or its owner's own word.");
    for (const auto& [name, item] : state.items) {
        if (item.last) {
            out.Sample({{"item", name}, {"status", words_.Word(words_.NumberOf(item.last->status))}}, 1.0);
        }
    }
    out.Family("ominspect_item_last_run_timestamp_seconds", MetricType::kGauge, "When the item's last run ended.");
    for (const auto& [name, item] : state.items) {
        if (item.last) {
            out.Sample({{"item", name}}, SecondsOf(item.last->time));
        }
    }
    out.Family("ominspect_item_last_run_duration_seconds", MetricType::kGauge, "How long the item's last run was.");
    for (const auto& [name, item] : state.items) {
        if (item.last && item.last->duration) {
            out.Sample({{"item", name}}, SecondsOf(*item.last->duration));
        }
    }
}

void Metrics::PrintRuns(Exposition& out) const {
    out.Family("ominspect_item_runs_total", MetricType::kCounter, "Runs of the item that ended, by their status.");
    for (const auto& [name, runs] : runs_) {
        for (std::size_t i = 0; i < runs.byStatus.size(); ++i) {
            if (runs.byStatus[i] > 0) {
                out.Sample({{"item", name}, {"status", words_.Word(i)}}, std::uint64_t{runs.byStatus[i]});
            }
        }
    }
    out.Family("ominspect_item_run_duration_seconds", MetricType::kHistogram,
               "How long the item's runs were whose begin was seen.");
    for (const auto& [name, runs] : runs_) {
        const auto counts = runs.durations.Cumulated();
        for (std::size_t i = 0; i < kDurationBounds.size(); ++i) {
            out.Sample("_bucket", {{"item", name}, {"le", kDurationBounds[i].text}}, counts[i]);
        }
        out.Sample("_bucket", {{"item", name}, {"le", "+Inf"}}, counts.back());
        out.Sample("_sum", {{"item", name}}, runs.durations.SumSeconds());
        out.Sample("_count", {{"item", name}}, counts.back());
    }
}

void Metrics::PrintGateway(Exposition& out) const {
    const GatewayFigures figures = context_.figures();
    out.Family("ominspect_gateway_info", MetricType::kGauge, "1; the gateway's version.");
    out.Sample({{"version", context_.version}}, 1.0);
    out.Family("ominspect_gateway_part_state", MetricType::kGauge,
               "1 for the state that the part of the gateway is in: ok, degraded, failed, off.");
    for (const auto& [name, part] : context_.parts.All()) {
        out.Sample({{"part", name}, {"state", WordOf(part.state)}}, 1.0);
    }
    out.Counter("ominspect_gateway_events_total", "Events that the gateway told its parts.", events_);
    out.Counter("ominspect_gateway_events_lost_total", "Events that were more than the gateway could take.",
                figures.lostEvents);
    out.Counter("ominspect_gateway_gaps_total", "Times of which something is missing: the bus away, events lost.",
                gaps_);
    out.Counter("ominspect_gateway_perfdata_events_total", "Events with what an item measured.", perfData_);
    out.Counter("ominspect_gateway_perfdata_refused_total",
                "Of these, those that do not count: the process does not own the item, or there is no room.",
                refusedPerfData_);
    out.Gauge("ominspect_gateway_listeners", "Listeners to the events.", static_cast<double>(figures.listeners));
    out.Counter("ominspect_gateway_listeners_dropped_total", "Listeners that were let go because they were too slow.",
                figures.droppedListeners);
    out.Gauge("ominspect_gateway_connections", "Open connections of HTTP.", static_cast<double>(figures.connections));
    if (figures.historyBytes) {
        out.Gauge("ominspect_gateway_history_bytes", "Size of the history.",
                  static_cast<double>(*figures.historyBytes));
        out.Counter("ominspect_gateway_events_not_kept_total", "Events that could not be kept in the history.",
                    figures.eventsNotKept);
    }
    const ProcessFigures process = ReadProcessFigures();
    out.Family("process_cpu_seconds_total", MetricType::kCounter, "Processor time of the gateway.");
    out.Sample({}, process.cpuSeconds);
    out.Gauge("process_resident_memory_bytes", "Resident memory of the gateway.", process.residentBytes);
    out.Gauge("process_start_time_seconds", "When the gateway started.", SecondsOf(start_));
}

}  // namespace ominspect::gateway
