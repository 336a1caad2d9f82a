// What Prometheus is shown of the terminal: its items, the server, and the gateway itself.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "metrics/durations.h"
#include "metrics/exposition.h"
#include "metrics/perf_values.h"
#include "metrics/status_words.h"
#include "model/event.h"
#include "model/parts.h"
#include "model/picture.h"

namespace ominspect::gateway {

// What the gateway's other parts count.
struct GatewayFigures {
    std::uint64_t lostEvents = 0;
    std::size_t listeners = 0;
    std::uint64_t droppedListeners = 0;
    std::size_t connections = 0;
    std::optional<std::uint64_t> historyBytes;  // nothing: no history
    std::uint64_t eventsNotKept = 0;
};

// Any thread. It counts from the gateway's start.
class Metrics {
public:
    using Clock = std::chrono::steady_clock;
    using Text = std::shared_ptr<const std::string>;

    struct Context {
        const Picture& picture;
        const Parts& parts;
        std::string version;
        std::function<GatewayFigures()> figures;
    };

    explicit Metrics(Context context) : context_(std::move(context)) {}

    void Apply(const Event& event);

    // What a process says that an item has measured. It counts when the process owns the item.
    void TakePerfData(const std::string& process, const client::PerfData& perfData);
    // Forgets what was measured by processes that no longer own the item.
    void ForgetFormerOwners();
    // Whether the items measure so much that no more can be shown.
    bool IsFull();

    // The document, in the text format. It is made anew when something has happened, and each second; it stays in
    // memory only while it is asked for again within that time.
    Text Document(Clock::time_point now);

    // Frees a document that nobody has asked for recently: it is large.
    void Tidy(Clock::time_point now);

private:
    struct Runs {
        Durations durations;
        std::array<std::uint32_t, StatusWords::kMost> byStatus{};
    };

    std::string Print();
    void PrintItems(Exposition& out, const State& state);
    void PrintRuns(Exposition& out) const;
    void PrintGateway(Exposition& out) const;

    const Context context_;
    const TimePoint start_ = std::chrono::system_clock::now();

    std::mutex mutex_;  // guards everything below; taken before the picture's
    std::uint64_t events_ = 0;
    std::uint64_t gaps_ = 0;
    std::map<std::string, Runs> runs_;  // by item
    StatusWords words_;
    PerfValues perfValues_;
    std::uint64_t perfData_ = 0;  // that came
    std::uint64_t refusedPerfData_ = 0;
    std::uint64_t version_ = 0;  // rises with every change of what is here
    Text text_;
    std::weak_ptr<const std::string> lent_;
    std::optional<Clock::time_point> asked_;
    std::uint64_t textVersion_ = 0;  // of the picture
    std::uint64_t textOwnVersion_ = 0;
    Clock::time_point textTime_;
};

}  // namespace ominspect::gateway
