// How long a group of items takes beyond the second that the server sleeps before it, beside as many runs one by one.
//
// 25 items that are answered at once, as a group (message 19, until its record has come) and one after the other
// (message 0), in turns.
//
//     group_run [rounds]
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bare_road.h"
#include "bench.h"
#include "ominspect/client/group.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/private_bus.h"
#include "support/temp_folder.h"

namespace {

using bench::Check;
using ominspect::client::GroupOptions;
using ominspect::client::GroupRecord;
using ominspect::client::Limit;
using ominspect::client::Request;
using ominspect::client::Session;
using support::Child;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kItems = 25;
constexpr std::chrono::seconds kSleep{1};

std::vector<std::string> Items() {
    std::vector<std::string> items;
    for (std::size_t item = 0; item < kItems; ++item) {
        items.push_back("item" + std::to_string(item));
    }
    return items;
}

double MicrosSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

double GroupMicros(Session& session, const std::vector<Request>& requests) {
    Clock::time_point end;
    std::size_t results = 0;
    GroupOptions options;
    options.waitForTurn = true;
    options.onRecord = [&](const GroupRecord& record) {
        end = Clock::now();
        for (const auto& result : record.items) {
            results += result.result.status == "success" ? 1 : 0;
        }
    };
    const auto begin = Clock::now();
    const auto error = RunGroup(session, requests, options, Limit(std::chrono::seconds(30)));
    Check(!error && results == kItems, "a group");
    return std::chrono::duration<double, std::micro>(end - begin - kSleep).count();
}

double SingleMicros(sd_bus* bus) {
    const auto begin = Clock::now();
    for (const std::string& item : Items()) {
        const std::string request = R"({"name":")" + item + R"(","cmd":"run"})";
        Check(bench::StatusOfRun(bus, bench::ServerCall(bus, 0, request.c_str())) == "success", "a run");
    }
    return MicrosSince(begin);
}

int MeasureAll(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "--owner") {
        bench::ServeItems("groupowner", Items());
    }
    const std::size_t rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 7;
    Check(rounds >= 3, "rounds of at least 3");
    const support::PrivateBus privateBus;
    const support::TempFolder folder;
    const Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=" + folder.Path().string()});
    sd_bus* bus = bench::OpenBus();
    Check(support::Eventually([bus] { return bench::IsThere(bus, "com.kivo.proc.ominspect"); }),
          "waiting for the server");
    const Child owner({argv[0], "--owner"});
    const std::string last = R"({"name":")" + Items().back() + R"(","cmd":"run"})";
    Check(support::Eventually(
              [&] { return bench::StatusOfRun(bus, bench::ServerCall(bus, 0, last.c_str())) == "success"; }),
          "waiting for the owner");
    const auto session = Session::Open();
    Check(static_cast<bool>(session), "joining the bus");
    std::vector<Request> requests;
    for (const std::string& item : Items()) {
        requests.push_back({item, ""});
    }
    std::array<std::vector<double>, 2> micros;
    for (std::size_t round = 0; round < rounds; ++round) {
        micros[0].push_back(GroupMicros(**session, requests));
        micros[1].push_back(SingleMicros(bus));
    }
    const double group = bench::Evaluate(micros[0]).median;
    const double single = bench::Evaluate(micros[1]).median;
    std::printf("%-44s%10s%10s\n", (std::to_string(rounds) + " rounds, milliseconds").c_str(), "median", "ratio");
    std::printf("%-44s%10.2f%10.2f\n", "group of 25, beyond the second before it", group / 1000, group / single);
    std::printf("%-44s%10.2f\n", "25 runs, one after the other", single / 1000);
    sd_bus_flush_close_unref(bus);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(MeasureAll, argc, argv);
}
