// What the benchmarks share. A failure of any of it ends the program: a benchmark has no use for half a run.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/private_bus.h"

namespace bench {

// Runs a program's body; what it throws becomes a line and exit code 1.
int RunMain(int (*body)(int argc, char** argv), int argc, char** argv) noexcept;

// Ends the program unless `good`.
void Check(bool good, const char* what);

// The bus of a benchmark, put into the environment as KIVO_BUS_ADDRESS: the one at BENCH_BUS_ADDRESS, of any make, else
// a dbus-daemon of its own.
class Bus {
public:
    Bus();

private:
    std::optional<support::PrivateBus> own_;
};

// A bare connection to the bus at KIVO_BUS_ADDRESS.
sd_bus* OpenBus();

// A message to the server's task on a bare connection, not sent yet. `task` is where it and its results come from and
// go to.
sd_bus_message* ServerCall(sd_bus* bus, uint32_t id, const char* payload, const char* task = "");

// The state query of an item (id 7) on a bare connection. Microseconds until its answer came.
double QueryMicros(sd_bus* bus);

// The private memory of a process, from /proc.
unsigned long PrivateKilobytes(pid_t pid);

// A port of the loopback address that nobody uses at the moment.
std::string FreePort();

struct Figures {
    double median;
    double p99;
    double most;
};

Figures Evaluate(std::vector<double> micros);

// Something that is measured: whether it succeeded, and how long it took.
struct Row {
    const char* name;
    std::function<bool()> step;
    std::vector<double> micros;
};

// All rows in turn, `rounds` times. Prints each first row of a pair with its ratios to the second.
void MeasureRows(std::vector<Row> rows, size_t rounds);

}  // namespace bench
