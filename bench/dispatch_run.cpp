// What the server itself takes, without the bus: nanoseconds of each message id with and without its log lines, of the
// result table's operations by the number of items, and of the reading of request texts.
//
// The platform is the fake one, in memory, so what is sent and replied is only recorded; the last table says what that
// costs. Log lines are formatted in either case, but go to the log client of the Linux platform or nowhere.
//
//     dispatch_run [Google Benchmark's options]
#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench.h"
#include "scratch.h"
#include "server/dispatch.h"
#include "server_log.h"
#include "server_roads.h"
#include "support/temp_folder.h"

namespace {

using bench::Road;
using Clock = std::chrono::steady_clock;

constexpr std::array<std::size_t, 4> kTableSizes{1, 32, 256, 10000};
constexpr std::size_t kItems = 32;  // while messages are dispatched

// One batch; the time of its passes, and how many lines they logged.
struct Batch {
    std::chrono::duration<double> time;
    std::size_t lines;
};

Batch RunBatch(const Road& road, bool log) {
    road.before();
    bench::WriteServerLog(log);
    const std::size_t lines = bench::ServerLogLines();
    const auto begin = Clock::now();
    for (std::size_t i = 0; i < road.batch; ++i) {
        road.pass(i);
    }
    const auto end = Clock::now();
    const std::size_t logged = bench::ServerLogLines() - lines;
    bench::WriteServerLog(false);
    road.after();
    return {end - begin, logged};
}

// What is measured.
const Road* g_road = nullptr;
bool g_log = false;

void Measure(benchmark::State& state) {
    while (state.KeepRunningBatch(static_cast<benchmark::IterationCount>(g_road->batch))) {
        state.SetIterationTime(RunBatch(*g_road, g_log).time.count());
    }
}

BENCHMARK(Measure)->UseManualTime()->MinTime(0.02)->Repetitions(7)->ReportAggregatesOnly();

// Keeps the median of the repetitions.
class Median : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run>& report) override {
        for (const Run& run : report) {
            if (run.aggregate_name == "median") {
                nanoseconds = run.GetAdjustedRealTime();
            }
        }
    }

    double nanoseconds = 0;
};

double Nanoseconds(const Road& road, bool log = false) {
    g_road = &road;
    g_log = log;
    Median median;
    benchmark::RunSpecifiedBenchmarks(&median);
    return median.nanoseconds;
}

void CompareMessages() {
    bench::StartServer(kItems);
    const std::vector<Road> roads = bench::MessageRoads();
    bench::Check(roads.size() == kDispatchTable.size(), "a message of each id");
    std::printf("%-48s%10s%10s%10s%10s\n", "a message, nanoseconds", "no log", "log", "more", "lines");
    for (const Road& road : roads) {
        const std::size_t lines = RunBatch(road, false).lines / road.batch;
        const double without = Nanoseconds(road);
        const double with = Nanoseconds(road, true);
        std::printf("%-48s%10.0f%10.0f%10.0f%10zu\n", road.name.c_str(), without, with, with - without, lines);
    }
}

void CompareTable() {
    std::map<std::string, std::map<std::size_t, double>> operations;
    for (const std::size_t size : kTableSizes) {
        bench::StartServer(size);
        for (const Road& road : bench::TableRoads(size)) {
            operations[road.name][size] = Nanoseconds(road);
        }
    }
    std::printf("\n%-36s", "result table, nanoseconds; items:");
    for (const std::size_t size : kTableSizes) {
        std::printf("%10zu", size);
    }
    std::printf("%12s\n", "10000 to 32");
    for (const auto& [name, nanoseconds] : operations) {
        std::printf("%-36s", name.c_str());
        for (const std::size_t size : kTableSizes) {
            std::printf("%10.0f", nanoseconds.at(size));
        }
        std::printf("%12.2f\n", nanoseconds.at(10000) / nanoseconds.at(32));
    }
    std::printf("%-76s%12.2f\n", "logarithms of the sizes", std::log(10000) / std::log(32));
}

void PrintAll(const char* title, const std::vector<Road>& roads) {
    std::printf("\n%-48s%10s\n", title, "median");
    for (const Road& road : roads) {
        std::printf("%-48s%10.0f\n", road.name.c_str(), Nanoseconds(road));
    }
}

int Run(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    bench::Check(!benchmark::ReportUnrecognizedArguments(argc, argv), "reading the options");
    const support::WorkingFolder work;  // the server looks for its files there
    const support::TempFolder logs(bench::ScratchParent());
    bench::OpenServerLog(logs.Path().string());
    CompareMessages();
    CompareTable();
    PrintAll("a name out of a request text, nanoseconds", bench::JsonRoads());
    bench::StartServer(kItems);
    PrintAll("the fake platform alone, nanoseconds", bench::PlatformRoads());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(Run, argc, argv);
}
