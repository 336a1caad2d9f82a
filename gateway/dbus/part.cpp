// The feed leaves results here and wakes the thread, which looks up everything else by itself.
#include "dbus/part.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <new>
#include <string>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "common/error.h"
#include "dbus/interface.h"
#include "kivo/os_msg.h"

namespace ominspect::gateway {
namespace {

constexpr const char* kPart = "dbus";
constexpr std::size_t kMostResults = 1024;
constexpr std::chrono::milliseconds kRetryPeriod{2000};
constexpr std::chrono::milliseconds kMemoryPeriod{50};  // a lack of memory is usually over at once
constexpr std::chrono::milliseconds kStep{500};
constexpr std::chrono::seconds kCallLimit{5};

}  // namespace

DBusPart::~DBusPart() {
    Stop();
}

void DBusPart::Start() {
    wake_ = UniqueFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake_) {
        parts_.Set(kPart, PartState::kFailed, SystemError().text);
        return;
    }
    thread_ = std::thread([this] { Run(); });
    (void)pthread_setname_np(thread_.native_handle(), "typed_dbus");
}

void DBusPart::Stop() {
    isEnding_ = true;
    Wake();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void DBusPart::Wake() const {
    const std::uint64_t one = 1;
    (void)!write(wake_.Get(), &one, sizeof one);
}

void DBusPart::Calm() const {
    std::uint64_t count = 0;
    (void)!read(wake_.Get(), &count, sizeof count);
}

void DBusPart::Tell(const Event& event) {
    if (event.kind == EventKind::kResult) {
        const std::lock_guard lock(mutex_);
        if (results_.size() < kMostResults) {
            results_.push_back(event);
        } else {
            ++lost_;
        }
    }
    Wake();
}

void DBusPart::Run() {
    while (!isEnding_) {
        auto period = kRetryPeriod;
        try {
            Serve();
        } catch (const std::bad_alloc& error) {
            parts_.Set(kPart, PartState::kFailed, error.what());
            period = kMemoryPeriod;
        } catch (const std::exception& error) {
            parts_.Set(kPart, PartState::kFailed, error.what());
        }
        const auto retry = std::chrono::steady_clock::now() + period;
        while (!isEnding_ && std::chrono::steady_clock::now() < retry) {
            pollfd wake{wake_.Get(), POLLIN, 0};
            (void)poll(&wake, 1, static_cast<int>(std::min(kStep, period).count()));
            Calm();
        }
    }
}

void DBusPart::Fail(const char* what, int result) {
    parts_.Set(kPart, PartState::kFailed, std::string(what) + ": " + SystemText(-result));
}

void DBusPart::Serve() {
    BusConnection bus;
    int result = OpenBus(bus, kCallLimit);
    if (result < 0) {
        Fail("the bus cannot be reached", result);
        return;
    }
    {
        // Nobody listened to what is old by now.
        const std::lock_guard lock(mutex_);
        results_.clear();
        lost_ = 0;
    }
    dbus::Interface interface(bus.get(), picture_, operations_);
    result = interface.Begin();
    if (result >= 0) {
        result = sd_bus_request_name(bus.get(), dbus::kName, 0);
    }
    if (result < 0) {
        if (result == -EEXIST) {
            parts_.Set(kPart, PartState::kFailed, "another process is com.kivo.Inspect1 on the bus");
        } else {
            Fail("cannot be com.kivo.Inspect1 on the bus", result);
        }
        return;
    }
    result = Follow(bus.get(), interface);
    if (result < 0) {
        Fail("the bus was lost", result);
        return;
    }
    interface.End();
}

// Until the bus is lost, or it is time to end.
int DBusPart::Follow(sd_bus* bus, dbus::Interface& interface) {
    while (!isEnding_) {
        int result = TakeNews(interface);
        while (result >= 0 && (result = sd_bus_process(bus, nullptr)) > 0) {
        }
        if (result >= 0) {
            result = Await(bus);
        }
        if (result < 0) {
            return result;
        }
    }
    return 0;
}

int DBusPart::TakeNews(dbus::Interface& interface) {
    std::deque<Event> results;
    std::uint64_t lost = 0;
    {
        const std::lock_guard lock(mutex_);
        results.swap(results_);
        lost = std::exchange(lost_, 0);
    }
    if (lost > 0) {
        parts_.Set(kPart, PartState::kDegraded, std::to_string(lost) + " results were not told");
    } else {
        parts_.Set(kPart, PartState::kOk);
    }
    int result = interface.Update();
    for (const Event& event : results) {
        result = std::min(result, interface.TellResult(event));
    }
    return std::min(result, interface.TellOperations());
}

int DBusPart::Await(sd_bus* bus) const {
    const int events = sd_bus_get_events(bus);
    std::uint64_t deadline = 0;
    const int timed = sd_bus_get_timeout(bus, &deadline);
    if (events < 0 || timed < 0) {
        return std::min(events, timed);
    }
    int limit = -1;
    if (deadline != UINT64_MAX) {
        timespec now{};
        (void)clock_gettime(CLOCK_MONOTONIC, &now);
        const auto nowUs =
            static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000;
        limit =
            deadline <= nowUs ? 0 : static_cast<int>(std::min<std::uint64_t>((deadline - nowUs) / 1000 + 1, 60'000));
    }
    pollfd fds[] = {{sd_bus_get_fd(bus), static_cast<short>(events), 0}, {wake_.Get(), POLLIN, 0}};
    if (poll(fds, 2, limit) < 0 && errno != EINTR) {
        return -errno;
    }
    Calm();
    return 0;
}

}  // namespace ominspect::gateway
