// sd-bus tells the number of the messages that wait, and sends them in order; the sizes are noted here.
#include "msg/unsent.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>

#include "msg/handles.h"
#include "msg/log.h"

namespace kivo::msg {

namespace {

constexpr size_t kMostBytes = size_t{16} << 20;

// What a message takes beside its payload: header, names, and sd-bus's own record of it.
constexpr size_t kEach = 1024;

// An answer of sd-bus itself, unless its size is known. The largest describe an object and its interfaces.
constexpr size_t kAnswer = 4096;

// What is left of the last answers reaches a daemon that is alive within milliseconds.
constexpr std::chrono::seconds kLeaveLimit{2};

}  // namespace

size_t Unsent::CountIn(sd_bus* bus) {
    uint64_t count = 0;
    (void)sd_bus_get_n_queued_write(bus, &count);
    return static_cast<size_t>(count);
}

bool Unsent::HasRoom(size_t payload) const {
    return bytes_ + payload + kEach <= kMostBytes;
}

// Without memory a size is not noted; Look then counts the message as an answer.
void Unsent::Note(size_t bytes) {
    try {
        sizes_.push_back(bytes);
        bytes_ += bytes;
    } catch (const std::bad_alloc&) {
        return;
    }
}

int Unsent::Send(sd_bus* bus, sd_bus_message* message, size_t payload, uint64_t* cookie) {
    if (!HasRoom(payload)) {
        if (!told_) {
            Log(kLogWarning, "the bus does not take what is sent: %zu messages wait, further ones are refused",
                sizes_.size());
        }
        told_ = true;
        return -ENOBUFS;
    }
    const int sent = sd_bus_send(bus, message, cookie);
    if (sent >= 0 && CountIn(bus) > sizes_.size()) {
        Note(payload + kEach);
    }
    return sent;
}

void Unsent::Look(sd_bus* bus) {
    const size_t count = CountIn(bus);
    while (sizes_.size() > count) {
        bytes_ -= sizes_.front();
        sizes_.pop_front();
    }
    for (size_t more = count - sizes_.size(); more > 0; --more) {
        Note(nextAnswer_ > 0 ? nextAnswer_ + kEach : kAnswer);
    }
    nextAnswer_ = 0;
    told_ = told_ && count > 0;
}

void Unsent::WriteOut(sd_bus* bus, std::unique_lock<std::mutex>& lock) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + kLeaveLimit;
    while (CountIn(bus) > 0) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return;
        }
        pollfd fd{sd_bus_get_fd(bus), POLLOUT, 0};
        lock.unlock();
        poll(&fd, 1, static_cast<int>(left));
        lock.lock();
        // What comes meanwhile is dropped; the daemon answers for a process that has left.
        sd_bus_message* received = nullptr;
        const int result = sd_bus_process(bus, &received);
        const MessagePtr dropped(received);
        if (result < 0) {
            return;
        }
    }
}

void Unsent::Clear() {
    sizes_.clear();
    bytes_ = 0;
    nextAnswer_ = 0;
    told_ = false;
}

}  // namespace kivo::msg
