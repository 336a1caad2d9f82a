// Processes that speak D-Bus themselves, and calls to them: what the server's roads are measured beside.
#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <string>
#include <vector>

#include "support/child.h"

namespace bench {

// The size of a result on the bus; also that of an answer of the bare road.
constexpr std::size_t kRecordSize = 192;

// A request text for the item "ok".
constexpr const char* kRequest = R"({"name":"ok","cmd":"run"})";

// Waits for the answer of a call, which it frees. The size of the byte array in it; 0 for an error.
std::size_t SizeOfAnswer(sd_bus* bus, sd_bus_message* call);

// The status in the result that answers a run, which is freed; empty for any other answer.
std::string StatusOfRun(sd_bus* bus, sd_bus_message* run);

// Whether a name has an owner.
bool IsThere(sd_bus* bus, const char* name);

// A process that answers each call with a record at once, and one that forwards it to such a process first. Each is a
// mode of the calling benchmark, which must call ServeRoad first.
class BareRoad {
public:
    // `program` is argv[0]. Starts one process that forwards and `backends` that answer.
    BareRoad(const char* program, std::size_t backends);

    // The benchmark was started as one of these processes: serves for ever. Returns when it was not.
    static void Serve(int argc, char** argv);

    // A call that the given backend answers, over the forwarder or straight; not sent yet.
    static sd_bus_message* Forwarded(sd_bus* bus, std::size_t backend = 0);
    static sd_bus_message* Straight(sd_bus* bus, std::size_t backend = 0);

    // Until all are there.
    bool IsReady(sd_bus* bus) const;

    [[nodiscard]] pid_t Forwarder() const { return children_.front().Pid(); }

private:
    std::size_t backends_;
    std::vector<support::Child> children_;
};

// A process that owns items: ServeItems is its body. Each run is answered at once with "success".
[[noreturn]] void ServeItems(const std::string& process, const std::vector<std::string>& items);

// Reads the bus for ever.
[[noreturn]] void ServeBus(sd_bus* bus);

}  // namespace bench
