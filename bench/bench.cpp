// Bare sd-bus, so that what is measured is not measured with itself.
#include "bench.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>

namespace bench {

namespace {

double Time(const Row& row) {
    const auto begin = std::chrono::steady_clock::now();
    Check(row.step(), row.name);
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

int RunMain(int (*body)(int argc, char** argv), int argc, char** argv) noexcept {
    try {
        return body(argc, argv);
    } catch (const std::exception& failure) {
        (void)std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}

void Check(bool good, const char* what) {
    if (good) {
        return;
    }
    (void)std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

Bus::Bus() {
    const char* address = std::getenv("BENCH_BUS_ADDRESS");
    if (address == nullptr) {
        own_.emplace();
    } else {
        Check(setenv("KIVO_BUS_ADDRESS", address, 1) == 0, "taking the address of the bus");
    }
}

sd_bus* OpenBus() {
    sd_bus* bus = nullptr;
    Check(sd_bus_new(&bus) >= 0 && sd_bus_set_address(bus, std::getenv("KIVO_BUS_ADDRESS")) >= 0 &&
              sd_bus_set_bus_client(bus, 1) >= 0 && sd_bus_start(bus) >= 0,
          "opening the bus");
    return bus;
}

sd_bus_message* ServerCall(sd_bus* bus, uint32_t id, const char* payload, const char* task) {
    sd_bus_message* call = nullptr;
    Check(sd_bus_message_new_method_call(bus, &call, "com.kivo.proc.ominspect", "/com/kivo/task/iom_5fsrv_5ftask",
                                         "com.kivo.Msg", "Send") >= 0 &&
              sd_bus_message_append(call, "uuss", id, 0, task, task) >= 0 &&
              sd_bus_message_append_array(call, 'y', payload, std::strlen(payload) + (id == 2 ? 1 : 0)) >= 0,
          "making a message");
    return call;
}

double QueryMicros(sd_bus* bus) {
    const auto begin = std::chrono::steady_clock::now();
    sd_bus_message* call = ServerCall(bus, 7, "ok");
    sd_bus_message* reply = nullptr;
    Check(sd_bus_call(bus, call, 0, nullptr, &reply) >= 0, "a state query");
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count();
}

unsigned long PrivateKilobytes(pid_t pid) {
    std::ifstream rollup("/proc/" + std::to_string(pid) + "/smaps_rollup");
    unsigned long sum = 0;
    for (std::string line; std::getline(rollup, line);) {
        if (line.rfind("Private_", 0) == 0) {
            sum += std::strtoul(line.c_str() + line.find(':') + 1, nullptr, 10);
        }
    }
    return sum;
}

// Below those that the system gives out by itself; some agents take no port above 32767.
std::string FreePort() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    static auto port = static_cast<uint16_t>(20'000 + getpid() % 10'000);  // each time another
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    do {
        ++port;
        address.sin_port = htons(port);
    } while (port < 32'000 && bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0);
    close(fd);
    Check(port < 32'000, "finding a free port");
    return std::to_string(port);
}

Figures Evaluate(std::vector<double> micros) {
    Check(!micros.empty(), "measuring");
    std::sort(micros.begin(), micros.end());
    return {micros[micros.size() / 2], micros[micros.size() * 99 / 100], micros.back()};
}

void MeasureRows(std::vector<Row> rows, size_t rounds) {
    for (size_t i = 0; i < rounds; ++i) {
        for (Row& row : rows) {
            row.micros.push_back(Time(row));
        }
    }
    std::printf("%-44s%10s%10s%10s%10s\n", (std::to_string(rounds) + " rounds, microseconds").c_str(), "median", "p99",
                "ratio", "p99 ratio");
    for (size_t i = 0; i < rows.size(); i += 2) {
        const Figures measured = Evaluate(rows[i].micros);
        const Figures bare = Evaluate(rows[i + 1].micros);
        std::printf("%-44s%10.1f%10.1f%10.2f%10.2f\n", rows[i].name, measured.median, measured.p99,
                    measured.median / bare.median, measured.p99 / bare.p99);
        std::printf("  %-42s%10.1f%10.1f\n", rows[i + 1].name, bare.median, bare.p99);
    }
}

}  // namespace bench
