#include "actions/telling.h"

#include <chrono>
#include <new>
#include <thread>
#include <utility>

namespace ominspect::gateway {
namespace {

constexpr int kTries = 50;
constexpr std::chrono::milliseconds kMemoryPeriod{100};

}  // namespace

bool TryToTell(Feed& feed, EventKind kind, const std::function<std::string()>& document) {
    try {
        Event event = EventNow(kind);
        event.document = document();
        feed.Post(std::move(event));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void TellInAnyCase(Feed& feed, EventKind kind, const std::function<std::string()>& document) {
    for (int tries = 0; tries < kTries; ++tries) {
        if (TryToTell(feed, kind, document)) {
            return;
        }
        std::this_thread::sleep_for(kMemoryPeriod);
    }
    feed.Lose();
}

}  // namespace ominspect::gateway
