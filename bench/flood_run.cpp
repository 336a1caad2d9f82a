// What one client that floods the server costs the others.
//
// A process sends messages to the server for some seconds, as fast as the bus takes them. Meanwhile and afterwards
// another client, and one that connects anew each time, ask for an item's state. Prints how long they waited, what
// became of the flood, and the server's memory before and a second after.
//
//     flood_run [seconds] [message id]
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/private_bus.h"
#include "support/temp_folder.h"

namespace {

using bench::Check;
using Clock = std::chrono::steady_clock;

constexpr const char* kRequest = R"({"name":"ok","cmd":"run"})";

int Flood(double seconds, uint32_t id) {
    sd_bus* bus = bench::OpenBus();
    unsigned long sent = 0;
    for (const auto end = Clock::now() + std::chrono::duration<double>(seconds); Clock::now() < end; ++sent) {
        sd_bus_message* call = bench::ServerCall(bus, id, id == 18 ? kRequest : "ok");
        Check(sd_bus_message_set_expect_reply(call, 0) >= 0 && sd_bus_send(bus, call, nullptr) >= 0, "a flood message");
        sd_bus_message_unref(call);
        if (sent % 64 == 63) {
            Check(sd_bus_flush(bus) >= 0, "writing the flood");
        }
    }
    sd_bus_flush_close_unref(bus);
    std::printf("%-48s%10lu\n", "messages of the flood", sent);
    return 0;
}

double NewClientMicros() {
    const auto begin = Clock::now();
    sd_bus* bus = bench::OpenBus();
    bench::QueryMicros(bus);
    sd_bus_flush_close_unref(bus);
    return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

void Print(const char* what, std::vector<double> micros) {
    const bench::Figures figures = bench::Evaluate(std::move(micros));
    std::printf("%-48s%10.1f%10.1f\n", what, figures.median / 1000, figures.most / 1000);
}

size_t LinesWith(const std::string& output, const char* text) {
    std::istringstream lines(output);
    size_t count = 0;
    for (std::string line; std::getline(lines, line);) {
        count += line.find(text) != std::string::npos ? 1 : 0;
    }
    return count;
}

int Measure(int argc, char** argv) {
    const double seconds = argc > 1 ? std::strtod(argv[1], nullptr) : 3;
    const auto id = static_cast<uint32_t>(argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 18);
    Check(seconds > 0, "a time above 0 s");
    if (argc > 3) {
        return Flood(seconds, id);
    }
    const support::PrivateBus privateBus;
    const support::TempFolder folder;
    const support::Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=" + folder.Path().string()});
    sd_bus* bus = bench::OpenBus();
    const auto present = [bus] { return sd_bus_get_name_creds(bus, "com.kivo.proc.ominspect", 0, nullptr) >= 0; };
    Check(support::Eventually(present), "waiting for the server");
    const support::Child owner({RAW_OWNER_PROGRAM, "owner1", "ok"});
    sleep(1);
    const unsigned long before = bench::PrivateKilobytes(server.Pid());

    support::Child flood({argv[0], std::to_string(seconds), std::to_string(id), "flood"});
    std::vector<double> during;
    std::vector<double> fresh;
    for (const auto end = Clock::now() + std::chrono::duration<double>(seconds); Clock::now() < end;) {
        during.push_back(bench::QueryMicros(bus));
        fresh.push_back(NewClientMicros());
    }
    std::vector<double> after;
    after.reserve(20);
    for (int i = 0; i < 20; ++i) {
        after.push_back(bench::QueryMicros(bus));
    }
    flood.Wait();
    sleep(1);
    std::printf("%-48s%10s%10s\n", "a state query, milliseconds", "median", "most");
    Print("while the flood lasts", during);
    Print("while the flood lasts, by a new client", fresh);
    Print("right after", after);
    std::printf("%-48s%10zu\n", "log lines of refused messages", LinesWith(server.Output(), "dropped"));
    (void)std::fputs(flood.Output().c_str(), stdout);
    std::printf("%-48s%10lu\n", "private memory before, KiB", before);
    std::printf("%-48s%10lu\n", "private memory a second after, KiB", bench::PrivateKilobytes(server.Pid()));
    sd_bus_flush_close_unref(bus);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(Measure, argc, argv);
}
