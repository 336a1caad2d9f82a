// How long requests take over the bus, beside bare sd-bus calls of the same shape.
//
// The client, the owner of the item and the processes of the bare road speak D-Bus themselves, so only the server is
// measured. All take turns in one run:
//   run      client -> ominspect -> owner and back (message 0), with nobody listening to events, then with one listener
//   forward  client -> a process that only forwards -> a process that only answers, and back
//   query    client -> ominspect and back (message 7)
//   call     client -> the process that only answers, and back
// Besides: a background run (message 18) by a client of the platform's library, and the idle server's private memory.
//
//     sync_run [rounds]
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bench.h"
#include "kivo/os_msg.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/private_bus.h"

namespace {

using bench::Check;
using bench::Evaluate;
using bench::Figures;
using support::Child;

constexpr const char* kRequest = R"({"name":"ok","cmd":"run"})";
constexpr const char* kTask = "results";
constexpr size_t kRecordSize = 192;
using Record = std::array<char, kRecordSize>;

// ---- processes that speak D-Bus themselves ----

// The size of the byte array that answers a call.
size_t SizeOfAnswer(sd_bus* bus, sd_bus_message* call) {
    sd_bus_message* reply = nullptr;
    const void* answer = nullptr;
    size_t length = 0;
    if (sd_bus_call(bus, call, 0, nullptr, &reply) >= 0) {
        sd_bus_message_read_array(reply, 'y', &answer, &length);
    }
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
    return length;
}

// One call of the bare road; the size of its answer.
size_t Call(sd_bus* bus, const char* destination, const void* data, size_t size) {
    sd_bus_message* call = nullptr;
    Check(sd_bus_message_new_method_call(bus, &call, destination, "/bench", "bench.Road", "Go") >= 0 &&
              sd_bus_message_append_array(call, 'y', data, size) >= 0,
          "making a call");
    return SizeOfAnswer(bus, call);
}

int Answer(sd_bus_message* call, const Record& record) {
    sd_bus_message* reply = nullptr;
    sd_bus_message_new_method_return(call, &reply);
    sd_bus_message_append_array(reply, 'y', record.data(), record.size());
    const int sent = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return sent;
}

int OnGo(sd_bus_message* call, void* next, sd_bus_error* /*error*/) {
    const void* data = nullptr;
    size_t size = 0;
    sd_bus_message_read_array(call, 'y', &data, &size);
    if (next != nullptr) {
        Call(sd_bus_message_get_bus(call), static_cast<const char*>(next), data, size);
    }
    return Answer(call, {});
}

int OnRun(sd_bus_message* call, void* /*data*/, sd_bus_error* /*error*/) {
    Record record{};
    constexpr std::string_view kStatus = "success";
    std::copy(kStatus.begin(), kStatus.end(), record.begin() + 32);
    return Answer(call, record);
}

const sd_bus_vtable kRoad[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Go", "ay", "ay", OnGo, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable kOwner[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Send", "uussay", "ay", OnRun, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

[[noreturn]] void Serve(sd_bus* bus) {
    for (;;) {
        if (sd_bus_process(bus, nullptr) == 0) {
            sd_bus_wait(bus, UINT64_MAX);
        }
    }
}

[[noreturn]] void ServeBare(const char* name, char* next) {
    sd_bus* bus = bench::OpenBus();
    Check(sd_bus_add_object_vtable(bus, nullptr, "/bench", "bench.Road", kRoad, next) >= 0 &&
              sd_bus_request_name(bus, name, 0) >= 0,
          "serving the bare road");
    Serve(bus);
}

[[noreturn]] void ServeItem() {
    sd_bus* bus = bench::OpenBus();
    Check(sd_bus_add_object_vtable(bus, nullptr, "/com/kivo/task/owner", "com.kivo.Msg", kOwner, nullptr) >= 0 &&
              sd_bus_request_name(bus, "com.kivo.proc.bareowner", 0) >= 0,
          "serving an item");
    sd_bus_message* registration = bench::ServerCall(bus, 2, "ok", "owner");
    Check(sd_bus_call(bus, registration, 0, nullptr, nullptr) >= 0, "registering an item");
    sd_bus_message_unref(registration);
    Serve(bus);
}

[[noreturn]] void Listen() {
    sd_bus* bus = bench::OpenBus();
    Check(sd_bus_add_match(bus, nullptr, "type='signal',interface='com.kivo.Msg'", nullptr, nullptr) >= 0 &&
              sd_bus_call_method(bus, "com.kivo.proc.ominspect", "/com/kivo/process", "com.kivo.Msg.Publisher",
                                 "Subscribe", nullptr, nullptr, nullptr) >= 0 &&
              sd_bus_request_name(bus, "com.kivo.proc.benchlistener", 0) >= 0,
          "listening");
    Serve(bus);
}

bool IsThere(sd_bus* bus, const char* name) {
    return sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                              "GetNameOwner", nullptr, nullptr, "s", name) >= 0;
}

// ---- a client of the platform's library ----

// Guards the count of results that came as messages of their own.
std::mutex g_lock;
std::condition_variable g_arrived;
size_t g_results = 0;

uint32_t CountResult(TagMsgBlock* msg) {
    const std::lock_guard<std::mutex> lock(g_lock);
    g_results += msg->msgId == 0 && msg->dataLen == kRecordSize ? 1 : 0;
    g_arrived.notify_one();
    return 0;
}

template <size_t size>
void SetName(char (&field)[size], std::string_view name) {
    std::copy_n(name.begin(), std::min(name.size(), size - 1), field);
}

void JoinAsClient() {
    OsTaskDescriptor task{};
    SetName(task.name, kTask);
    task.queueDepth = 16;
    task.handler = CountResult;
    Check(OsProcAttach("bench") == OS_MSG_OK && OsTaskCreate(&task) == OS_MSG_OK, "joining the bus");
}

bool RunInBackground() {
    std::unique_lock<std::mutex> lock(g_lock);
    const size_t before = g_results;
    lock.unlock();
    TagMsgBlock block{};
    SetName(block.dstProcName, "ominspect");
    SetName(block.dstTaskName, "iom_srv_task");
    SetName(block.replyTaskName, kTask);
    block.msgId = 18;
    block.data = reinterpret_cast<unsigned char*>(const_cast<char*>(kRequest));
    block.dataLen = static_cast<uint32_t>(std::strlen(kRequest));
    TagMsgBlock* response = nullptr;
    const uint32_t sent = OsMsgSynSend(&block, &response, 5000);
    OsMsgSynRespFree(response);
    lock.lock();
    return sent == OS_MSG_OK &&
           g_arrived.wait_for(lock, std::chrono::seconds(5), [before] { return g_results == before + 1; });
}

// ---- measuring ----

struct Row {
    const char* name;
    std::function<bool()> step;
    std::vector<double> micros;
};

double Time(const Row& row) {
    const auto begin = std::chrono::steady_clock::now();
    Check(row.step(), row.name);
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count();
}

// All rows in turn, `rounds` times; each line has the ratios to the row after it, or to the last.
void Measure(std::vector<Row> rows, size_t rounds) {
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

int MeasureAll(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    char backend[] = "com.kivo.proc.benchbackend";
    if (mode == "--backend") {
        ServeBare(backend, nullptr);
    } else if (mode == "--forwarder") {
        ServeBare("com.kivo.proc.benchforwarder", backend);
    } else if (mode == "--owner") {
        ServeItem();
    } else if (mode == "--listener") {
        Listen();
    }
    const size_t rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 4000;
    Check(rounds >= 100, "rounds of at least 100");

    const support::PrivateBus privateBus;
    const Child last({argv[0], "--backend"});
    const Child forwarder({argv[0], "--forwarder"});
    const Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=/tmp"});
    sd_bus* bus = bench::OpenBus();
    Check(support::Eventually([bus] { return IsThere(bus, "com.kivo.proc.ominspect"); }), "waiting for the server");
    const Child owner({argv[0], "--owner"});
    const auto run = [bus] { return SizeOfAnswer(bus, bench::ServerCall(bus, 0, kRequest)) == kRecordSize; };
    const auto query = [bus] { return SizeOfAnswer(bus, bench::ServerCall(bus, 7, "ok")) == sizeof(uint32_t); };
    const auto callOf = [bus](const char* name) {
        return [bus, name] { return Call(bus, name, kRequest, std::strlen(kRequest)) == kRecordSize; };
    };
    const Row forward{"bare forwarded call", callOf("com.kivo.proc.benchforwarder"), {}};
    const Row call{"bare call", callOf(backend), {}};
    Check(support::Eventually([bus] { return IsThere(bus, "com.kivo.proc.bareowner"); }) &&
              support::Eventually(forward.step) && support::Eventually(run),
          "waiting for all processes");
    sleep(11);  // the server has come to rest, and sends events to subscribers only
    const unsigned long idle = bench::PrivateKilobytes(server.Pid());

    Measure({{"synchronous run, nobody listens", run, {}}, forward, {"state query", query, {}}, call}, rounds);
    std::optional<Child> listener(std::in_place, std::vector<std::string>{argv[0], "--listener"});
    Check(support::Eventually([bus] { return IsThere(bus, "com.kivo.proc.benchlistener"); }),
          "waiting for the listener");
    Measure({{"synchronous run, one listener", run, {}}, forward}, rounds);
    listener.reset();
    JoinAsClient();
    Measure({{"background run, nobody listens", RunInBackground, {}}, forward}, rounds);
    std::printf("server's private memory when idle: %lu KiB\n", idle);
    OsProcDetach();
    sd_bus_flush_close_unref(bus);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(MeasureAll, argc, argv);
}
