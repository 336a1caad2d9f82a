// How much processor time the gateway takes to write the state of 256 items as JSON: what it does anew when something
// has changed, and once a second while it is asked.
#include <ctime>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "http/document.h"

namespace {

using namespace ominspect;
using namespace ominspect::gateway;

constexpr int kItems = 256;
constexpr int kRounds = 201;
constexpr double kGoalMs = 2;

State MakeState() {
    const TimePoint now = std::chrono::system_clock::now();
    State state;
    state.server.isUp = true;
    state.server.since = now;
    for (int i = 0; i < kItems; ++i) {
        ItemView item;
        item.name = "bench_item_" + std::to_string(i);
        item.configuration = client::ConfiguredItem{item.name, "error", true};
        item.owners = {client::ItemOwner{"bench", std::chrono::milliseconds(5000), true}};
        item.state = ItemState::kIdle;
        item.last = LastResult{"success", "2.41 GiB free (61 %), \"grüße\"", "helpdesk", now, now, {}, 1000U + i};
        item.last->duration = std::chrono::milliseconds(123);
        state.order.push_back(item.name);
        state.items[item.name] = item;
    }
    return state;
}

double CpuMs() {
    timespec time{};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

}  // namespace

int main() {
    const State state = MakeState();
    std::vector<double> times;
    std::size_t bytes = 0;
    for (int i = 0; i < kRounds; ++i) {
        const double begin = CpuMs();
        bytes = StateJson(state, std::chrono::system_clock::now()).Print().size();
        times.push_back(CpuMs() - begin);
    }
    std::sort(times.begin(), times.end());
    (void)std::printf("state of %d items, %zu bytes of JSON: %.2f ms of processor time (median of %d; goal %.0f)\n",
                      kItems, bytes, times[kRounds / 2], kRounds, kGoalMs);
    return 0;
}
