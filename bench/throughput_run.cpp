// How many runs a second the server makes for many clients, beside bare forwarding of the same requests.
//
// Each client has a connection and an item of its own, and asks again as soon as it has its answer; one process speaks
// for all of them, in bare sd-bus. The items are spread over the owners. Each line compares, in turns:
//   forward   clients -> a process that only forwards -> processes that only answer, and back
//   sync      message 0: the reply is the result
//   start     message 18: the result is a message of its own
// With perf(1), the server's system calls and context switches per run are counted, too.
//
//     throughput_run [seconds for each figure]
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "bare_road.h"
#include "bench.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/temp_folder.h"

namespace {

using bench::Check;
using support::Child;

constexpr std::size_t kMostClients = 256;
constexpr std::size_t kMostOwners = 16;
constexpr const char* kPerf = "/usr/bin/perf";
constexpr const char* kTask = "results";

enum class Kind { kForward, kSync, kStart };

// An item of a client, when this many owners have them all.
std::string ItemOf(std::size_t owners, std::size_t client) {
    return "item" + std::to_string(owners) + "-" + std::to_string(client);
}

std::string OwnerName(std::size_t owners, std::size_t owner) {
    return "owner" + std::to_string(owners) + "x" + std::to_string(owner);
}

[[noreturn]] void ServeOwner(std::size_t owners, std::size_t owner) {
    std::vector<std::string> items;
    for (std::size_t client = owner; client < kMostClients; client += owners) {
        items.push_back(ItemOf(owners, client));
    }
    bench::ServeItems(OwnerName(owners, owner), items);
}

// One client. It has at most one request under way.
class Client {
public:
    Client(sd_event* event, std::size_t number) : number_(number), bus_(bench::OpenBus()) {
        static const sd_bus_vtable kMail[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_METHOD("Send", "uussay", "ay", OnMail, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_VTABLE_END,
        };
        Check(sd_bus_add_object_vtable(bus_, nullptr, "/com/kivo/task/results", "com.kivo.Msg", kMail, this) >= 0 &&
                  sd_bus_request_name(bus_, ("com.kivo.proc.client" + std::to_string(number)).c_str(), 0) >= 0 &&
                  sd_bus_attach_event(bus_, event, 0) >= 0,
              "making a client");
    }
    ~Client() { sd_bus_flush_close_unref(bus_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    Client(Client&&) = delete;
    Client& operator=(Client&&) = delete;

    void Begin(Kind kind, std::size_t owners) {
        kind_ = kind;
        owners_ = owners;
        answers_ = 0;
        going_ = true;
        Ask();
    }

    // No further request.
    void End() { going_ = false; }

    [[nodiscard]] bool IsIdle() const { return !waiting_; }
    [[nodiscard]] std::size_t Answers() const { return answers_; }

private:
    void Ask() {
        const std::string request = R"({"name":")" + ItemOf(owners_, number_) + R"(","cmd":"run"})";
        sd_bus_message* call = nullptr;
        switch (kind_) {
            case Kind::kForward:
                call = bench::BareRoad::Forwarded(bus_, number_ % owners_);
                break;
            case Kind::kSync:
                call = bench::ServerCall(bus_, 0, request.c_str());
                break;
            case Kind::kStart:
                call = bench::ServerCall(bus_, 18, request.c_str(), kTask);
                break;
        }
        waiting_ = true;
        const int sent = kind_ == Kind::kStart ? Post(call) : sd_bus_call_async(bus_, nullptr, call, OnReply, this, 0);
        Check(sent >= 0, "sending a request");
        sd_bus_message_unref(call);
    }

    int Post(sd_bus_message* call) {
        sd_bus_message_set_expect_reply(call, 0);
        return sd_bus_send(bus_, call, nullptr);
    }

    void Answered(sd_bus_message* message) {
        const void* data = nullptr;
        std::size_t size = 0;
        Check(sd_bus_message_read_array(message, 'y', &data, &size) >= 0 && size == bench::kRecordSize, "a run");
        ++answers_;
        waiting_ = false;
        if (going_) {
            Ask();
        }
    }

    static int OnReply(sd_bus_message* reply, void* self, sd_bus_error* /*error*/) {
        static_cast<Client*>(self)->Answered(reply);
        return 1;
    }

    static int OnMail(sd_bus_message* mail, void* self, sd_bus_error* /*error*/) {
        Check(sd_bus_message_skip(mail, "uuss") >= 0, "a result");
        static_cast<Client*>(self)->Answered(mail);
        return 1;
    }

    const std::size_t number_;
    sd_bus* bus_;
    Kind kind_ = Kind::kForward;
    std::size_t owners_ = 1;
    std::size_t answers_ = 0;
    bool going_ = false;
    bool waiting_ = false;
};

unsigned long ThreadsOf(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("Threads:", 0) == 0) {
            return std::strtoul(line.c_str() + line.find(':') + 1, nullptr, 10);
        }
    }
    return 0;
}

struct Sum {
    double seconds = 0;
    double answers = 0;
    unsigned long threads = 0;
    std::array<double, 2> counted{};  // context switches, system calls
};

// perf(1) over a process for some time.
class Counter {
public:
    Counter(const support::TempFolder& folder, pid_t pid, double seconds) : path_(folder / "counted") {
        if (access(kPerf, X_OK) == 0) {
            perf_.emplace(std::vector<std::string>{
                kPerf, "stat", "-x,", "-e", "context-switches,raw_syscalls:sys_enter", "-o", path_, "-p",
                std::to_string(pid), "--timeout", std::to_string(static_cast<int>(seconds * 1000))});
        }
    }

    void AddTo(std::array<double, 2>& counted) {
        if (!perf_ || perf_->Wait() != 0) {
            return;
        }
        std::ifstream lines(path_);
        for (std::string line; std::getline(lines, line);) {
            const double count = std::strtod(line.c_str(), nullptr);
            counted[0] += line.find("context-switches") != std::string::npos ? count : 0;
            counted[1] += line.find("sys_enter") != std::string::npos ? count : 0;
        }
    }

private:
    std::string path_;
    std::optional<Child> perf_;
};

using Clients = std::vector<std::unique_ptr<Client>>;

void RunFor(sd_event* event, double seconds, const auto& eachTime) {
    const auto begin = std::chrono::steady_clock::now();
    const auto end = begin + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < end) {
        Check(sd_event_run(event, 1000) >= 0, "reading the bus");
        eachTime();
    }
}

void MeasureKind(sd_event* event, Clients& clients, Kind kind, std::size_t owners, double seconds, pid_t server,
                 const support::TempFolder& folder, Sum& sum) {
    for (const auto& client : clients) {
        client->Begin(kind, owners);
    }
    RunFor(event, 0.2, [] {});
    std::size_t before = 0;
    for (const auto& client : clients) {
        before += client->Answers();
    }
    Counter counter(folder, server, seconds);
    const auto begin = std::chrono::steady_clock::now();
    std::size_t turns = 0;
    RunFor(event, seconds, [&] {
        if (++turns % 256 == 0) {
            sum.threads = std::max(sum.threads, ThreadsOf(server));
        }
    });
    sum.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    for (const auto& client : clients) {
        sum.answers += static_cast<double>(client->Answers());
        client->End();
    }
    sum.answers -= static_cast<double>(before);
    counter.AddTo(sum.counted);
    const auto allIdle = [&clients] {
        return std::ranges::all_of(clients, [](const auto& client) { return client->IsIdle(); });
    };
    for (int wait = 0; wait < 10'000 && !allIdle(); ++wait) {
        Check(sd_event_run(event, 1000) >= 0, "reading the bus");
    }
    Check(allIdle(), "an answer for everybody");
}

void PrintLine(std::size_t clients, std::size_t owners, const char* road, const Sum& sum, const Sum& bare) {
    std::printf("%7zu%8zu  %-10s%10.0f%8.2f", clients, owners, road, sum.answers / sum.seconds,
                sum.answers / sum.seconds / (bare.answers / bare.seconds));
    if (sum.counted[1] > 0) {
        std::printf("%11.1f%11.1f", sum.counted[1] / sum.answers, sum.counted[0] / sum.answers);
    } else {
        std::printf("%11s%11s", "-", "-");
    }
    std::printf("%9lu\n", sum.threads);
    (void)std::fflush(stdout);
}

void MeasureLoad(sd_event* event, std::size_t clientCount, std::size_t owners, double seconds, pid_t server,
                 pid_t forwarder, const support::TempFolder& folder) {
    Clients clients;
    for (std::size_t number = 0; number < clientCount; ++number) {
        clients.push_back(std::make_unique<Client>(event, number));
    }
    std::array<Sum, 3> sums{};
    for (int turn = 0; turn < 2; ++turn) {
        for (const Kind kind : {Kind::kForward, Kind::kSync, Kind::kStart}) {
            MeasureKind(event, clients, kind, owners, seconds / 2, kind == Kind::kForward ? forwarder : server, folder,
                        sums[static_cast<std::size_t>(kind)]);
        }
    }
    PrintLine(clientCount, owners, "forward", sums[0], sums[0]);
    PrintLine(clientCount, owners, "sync", sums[1], sums[0]);
    PrintLine(clientCount, owners, "start", sums[2], sums[0]);
}

int MeasureAll(int argc, char** argv) {
    bench::BareRoad::Serve(argc, argv);
    if (argc > 3 && std::string(argv[1]) == "--owner") {
        ServeOwner(std::strtoul(argv[2], nullptr, 10), std::strtoul(argv[3], nullptr, 10));
    }
    const double seconds = argc > 1 ? std::strtod(argv[1], nullptr) : 1.5;
    Check(seconds >= 0.2, "seconds of at least 0.2");

    const bench::Bus ownBus;
    const support::TempFolder folder;
    const bench::BareRoad road(argv[0], kMostOwners);
    const Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=" + folder.Path().string()});
    sd_bus* bus = bench::OpenBus();
    Check(support::Eventually([bus] { return bench::IsThere(bus, "com.kivo.proc.ominspect"); }),
          "waiting for the server");
    std::vector<Child> owners;
    for (const std::size_t count : {std::size_t{1}, kMostOwners}) {
        for (std::size_t owner = 0; owner < count; ++owner) {
            owners.emplace_back(
                std::vector<std::string>{argv[0], "--owner", std::to_string(count), std::to_string(owner)});
        }
    }
    Check(support::Eventually([&] { return road.IsReady(bus); }), "waiting for the bare road");
    for (const std::size_t count : {std::size_t{1}, kMostOwners}) {
        for (std::size_t client = 0; client < kMostClients; ++client) {
            const std::string request = R"({"name":")" + ItemOf(count, client) + R"(","cmd":"run"})";
            Check(support::Eventually(
                      [&] { return bench::StatusOfRun(bus, bench::ServerCall(bus, 0, request.c_str())) == "success"; }),
                  "waiting for the items");
        }
    }
    sleep(11);  // the server has come to rest, and sends events to subscribers only
    sd_event* event = nullptr;
    Check(sd_event_new(&event) >= 0, "making an event loop");
    std::printf("%7s%8s  %-10s%10s%8s%11s%11s%9s\n", "clients", "owners", "road", "runs/s", "ratio", "calls/run",
                "switches", "threads");
    for (const std::size_t clientCount : {std::size_t{1}, std::size_t{8}, std::size_t{64}, kMostClients}) {
        for (const std::size_t ownerCount : {std::size_t{1}, kMostOwners}) {
            MeasureLoad(event, clientCount, ownerCount, seconds, server.Pid(), road.Forwarder(), folder);
        }
    }
    sd_event_unref(event);
    sd_bus_flush_close_unref(bus);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(MeasureAll, argc, argv);
}
