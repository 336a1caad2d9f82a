// Typed D-Bus as a part of the gateway: a connection and a thread of its own, which come back when the bus was away.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

#include "actions/operations.h"
#include "common/fd.h"
#include "dbus/handles.h"
#include "model/event.h"
#include "model/parts.h"
#include "model/picture.h"

namespace ominspect::gateway {

namespace dbus {
class Interface;
}

class DBusPart {
public:
    DBusPart(const Picture& picture, Operations& operations, Parts& parts)
        : picture_(picture), operations_(operations), parts_(parts) {}
    ~DBusPart();
    DBusPart(const DBusPart&) = delete;
    DBusPart& operator=(const DBusPart&) = delete;

    void Start();

    // Answers who waits, and ends.
    void Stop();

    // From the feed; never waits.
    void Tell(const Event& event);

private:
    void Run();
    void Serve();
    int Follow(sd_bus* bus, dbus::Interface& interface);
    int TakeNews(dbus::Interface& interface);
    int Await(sd_bus* bus) const;
    void Fail(const char* what, int result);
    void Wake() const;
    void Calm() const;

    const Picture& picture_;
    Operations& operations_;
    Parts& parts_;
    UniqueFd wake_;  // an eventfd
    std::atomic<bool> isEnding_{false};

    std::mutex mutex_;  // guards everything below
    std::deque<Event> results_;
    std::uint64_t lost_ = 0;
    std::thread thread_;
};

}  // namespace ominspect::gateway
