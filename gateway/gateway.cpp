// The parts are made in the order in which they depend on each other, and ended in the reverse order: first those that
// ask, then the watcher, then the feed, which tells the rest, and finally the history.
#include "gateway.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include <poll.h>
#include <systemd/sd-daemon.h>

#include "actions/collection.h"
#include "actions/operations.h"
#include "common/end_signals.h"
#include "common/text.h"
#include "dbus/part.h"
#include "history/writer.h"
#include "http/part.h"
#include "memory.h"
#include "metrics/metrics.h"
#include "metrics/perf_listener.h"
#include "model/feed.h"
#include "model/parts.h"
#include "model/picture.h"
#include "model/runs.h"
#include "mqtt/part.h"
#include "watch/link.h"
#include "watch/watcher.h"

namespace ominspect::gateway {
namespace {

constexpr int kRoundMs = 1000;
constexpr unsigned kTickSeconds = 15;
constexpr unsigned kGiveBackSecond = 5;  // within each kTickSeconds; the first time soon after the start

class Gateway {
public:
    explicit Gateway(const Settings& settings)
        : settings_(settings),
          parts_([this](const std::string& name, const Part& part) { TellPart(name, part); }),
          writer_(MakeWriter()),
          feed_(writer_.get(), static_cast<std::uint64_t>(history::MsOf(std::chrono::system_clock::now()))),
          hub_(feed_.ToldSeq(), [this](std::uint64_t after, std::size_t limit) { return Missed(after, limit); }),
          metrics_(MakeMetrics()),
          perfListener_(metrics_ ? std::make_unique<PerfListener>(*metrics_, parts_) : nullptr),
          watcher_({settings.process, settings.refresh}, link_, runs_, picture_, parts_, feed_, perfListener_.get()),
          operations_(link_, runs_, picture_, feed_),
          dbus_(picture_, operations_, parts_) {
        feed_.Subscribe([this](const Event& event) { picture_.Apply(event); });
        feed_.Subscribe([this](const Event& event) { hub_.Tell(event); });
        if (metrics_) {
            feed_.Subscribe([this](const Event& event) { metrics_->Apply(event); });
        }
        if (settings.dbus.isOn) {
            feed_.Subscribe([this](const Event& event) { dbus_.Tell(event); });
        }
        if (settings_.mqtt.isOn) {
            mqtt_ = std::make_unique<MqttPart>(settings_.mqtt, HistoryPath(), picture_, parts_, feed_);
        } else {
            parts_.Set("mqtt", PartState::kOff);
        }
    }

    std::optional<Error> Serve(EndSignals& signals) {
        RememberLastResults();
        isFeeding_ = true;
        feed_.Start();
        if (writer_) {
            writer_->Start();
        }
        auto error = BeginHttp();
        if (!error) {
            if (mqtt_) {
                mqtt_->Start(operations_, collection_.get());
            }
            watcher_.Start();
            BeginDBus();
            (void)sd_notify(0, "READY=1");
            WaitForEnd(signals);
            (void)sd_notify(0, "STOPPING=1");
        }
        http_.reset();
        dbus_.Stop();
        if (mqtt_) {
            mqtt_->Stop();
        }
        collection_.reset();
        operations_.StopAll();
        watcher_.Stop();
        feed_.Stop();
        if (writer_) {
            writer_->Stop();
        }
        return error;
    }

private:
    std::string HistoryPath() const { return settings_.history.isOn ? settings_.history.path : ""; }

    std::unique_ptr<Writer> MakeWriter() {
        if (!settings_.history.isOn) {
            parts_.Set("history", PartState::kOff);
            return nullptr;
        }
        Writer::Settings writer;
        writer.path = settings_.history.path;
        writer.bus = history::BusName(std::getenv("KIVO_BUS_ADDRESS"));
        writer.retention.age = std::chrono::hours(24) * settings_.history.days;
        writer.retention.bytes = std::uint64_t{settings_.history.megabytes} << 20U;
        return std::make_unique<Writer>(std::move(writer), parts_, [this](Event gap) { feed_.Post(std::move(gap)); });
    }

    std::unique_ptr<Metrics> MakeMetrics() {
        parts_.Set("metrics", settings_.metrics.isOn ? PartState::kOk : PartState::kOff);
        if (!settings_.metrics.isOn) {
            return nullptr;
        }
        return std::make_unique<Metrics>(
            Metrics::Context{picture_, parts_, OMINSPECT_VERSION, [this] { return CountedFigures(); }});
    }

    std::optional<Error> BeginHttp() {
        if (settings_.collection.isOn) {
            std::error_code error;
            const auto own = std::filesystem::read_symlink("/proc/self/exe", error);
            collection_ = std::make_unique<Collection>((own.parent_path() / "ominspectctl").string(),
                                                       settings_.collection.folder, settings_.collection.config, feed_);
        }
        if (!settings_.http.isOn) {
            parts_.Set("http", PartState::kOff);
            return std::nullopt;
        }
        auto http = HttpPart::Begin(settings_.http,
                                    {picture_,
                                     parts_,
                                     hub_,
                                     operations_,
                                     collection_.get(),
                                     metrics_.get(),
                                     HistoryPath(),
                                     {},
                                     [this] { return Figures(); }},
                                    connections_);
        if (!http) {
            return http.Failure();
        }
        http_ = std::move(*http);
        parts_.Set("http", PartState::kOk);
        return std::nullopt;
    }

    void BeginDBus() {
        if (settings_.dbus.isOn) {
            dbus_.Start();
        } else {
            parts_.Set("dbus", PartState::kOff);
        }
    }

    json::Value Figures() const {
        auto figures = json::Value::Object();
        figures.Number("listeners", hub_.Count()).Number("droppedListeners", hub_.Dropped());
        figures.Number("lostEvents", feed_.LostEvents()).Number("lastEvent", feed_.ToldSeq());
        if (writer_) {
            figures.Number("historyBytes", writer_->Bytes()).Number("eventsNotKept", writer_->LostEvents());
        }
        return figures;
    }

    GatewayFigures CountedFigures() const {
        GatewayFigures figures;
        figures.lostEvents = feed_.LostEvents();
        figures.listeners = hub_.Count();
        figures.droppedListeners = hub_.Dropped();
        figures.connections = connections_;
        if (writer_) {
            figures.historyBytes = writer_->Bytes();
            figures.eventsNotKept = writer_->LostEvents();
        }
        return figures;
    }

    // What a listener missed, read on the thread that asks.
    std::optional<std::vector<history::Row>> Missed(std::uint64_t after, std::size_t limit) const {
        if (!settings_.history.isOn) {
            return std::nullopt;
        }
        history::Filter filter;
        filter.after = after;
        filter.isOldestFirst = true;
        filter.limit = limit;
        auto reader = history::Reader::Open(settings_.history.path);
        auto rows = reader ? (*reader)->Find(filter) : reader.Failure();
        return rows ? std::optional(std::move(*rows)) : std::nullopt;
    }

    void TellPart(const std::string& name, const Part& part) {
        Log(name, part);
        if (isFeeding_) {
            Event event;
            event.kind = EventKind::kPart;
            event.time = part.since;
            event.item = name;
            event.status = WordOf(part.state);
            event.text = part.text;
            feed_.Post(std::move(event));
        }
    }

    // What was before the gateway started, as far as it is kept.
    void RememberLastResults() {
        auto reader = settings_.history.isOn ? history::Reader::Open(settings_.history.path)
                                             : Result<std::unique_ptr<history::Reader>>(OtherError(""));
        const auto rows = reader ? (*reader)->LastResults() : reader.Failure();
        if (!rows) {
            return;  // the writer has told what is wrong
        }
        for (const history::Row& row : *rows) {
            picture_.SetLast(row.item, {row.status, row.text, row.cause, row.time, row.begin, row.duration, row.seq});
        }
    }

    // Gives signs of life as long as the feed goes round.
    void WaitForEnd(EndSignals& signals) {
        std::uint64_t rounds = 0;
        unsigned seconds = 0;
        pollfd fds[] = {{signals.Fd(), POLLIN, 0}};
        while (poll(fds, 1, kRoundMs) <= 0) {
            if (feed_.Rounds() != rounds) {
                rounds = feed_.Rounds();
                (void)sd_notify(0, "WATCHDOG=1");
            }
            feed_.Wake();
            if (++seconds % kTickSeconds == 0) {
                hub_.Tick();
                if (metrics_) {
                    metrics_->Tidy(Metrics::Clock::now());
                }
            }
            if (seconds % kTickSeconds == kGiveBackSecond) {
                GiveBackMemory();
            }
        }
    }

    const Settings& settings_;
    std::atomic<bool> isFeeding_{false};
    Parts parts_;
    Picture picture_;
    Runs runs_;
    Link link_;
    std::unique_ptr<Writer> writer_;
    Feed feed_;
    Hub hub_;
    std::unique_ptr<Metrics> metrics_;
    std::unique_ptr<PerfListener> perfListener_;
    Watcher watcher_;
    Operations operations_;
    DBusPart dbus_;
    std::atomic<std::size_t> connections_{0};
    std::unique_ptr<Collection> collection_;
    std::unique_ptr<HttpPart> http_;
    std::unique_ptr<MqttPart> mqtt_;
};

}  // namespace

std::optional<Error> Serve(const Settings& settings) {
    SpareMemory();
    EndSignals signals;
    (void)std::signal(SIGPIPE, SIG_IGN);
    Gateway gateway(settings);
    return gateway.Serve(signals);
}

}  // namespace ominspect::gateway
