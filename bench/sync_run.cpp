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
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bare_road.h"
#include "bench.h"
#include "kivo/os_msg.h"
#include "support/child.h"
#include "support/eventually.h"

namespace {

using bench::Check;
using bench::Row;
using support::Child;

using bench::IsThere;
using bench::kRecordSize;
using bench::kRequest;
using bench::SizeOfAnswer;

constexpr const char* kTask = "results";

[[noreturn]] void Listen() {
    sd_bus* bus = bench::OpenBus();
    Check(sd_bus_add_match(bus, nullptr, "type='signal',interface='com.kivo.Msg'", nullptr, nullptr) >= 0 &&
              sd_bus_call_method(bus, "com.kivo.proc.ominspect", "/com/kivo/process", "com.kivo.Msg.Publisher",
                                 "Subscribe", nullptr, nullptr, nullptr) >= 0 &&
              sd_bus_request_name(bus, "com.kivo.proc.benchlistener", 0) >= 0,
          "listening");
    bench::ServeBus(bus);
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

int MeasureAll(int argc, char** argv) {
    bench::BareRoad::Serve(argc, argv);
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "--owner") {
        bench::ServeItems("bareowner", {"ok"});
    } else if (mode == "--listener") {
        Listen();
    }
    const size_t rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 4000;
    Check(rounds >= 100, "rounds of at least 100");

    const bench::Bus ownBus;
    const bench::BareRoad road(argv[0], 1);
    const Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=/tmp"});
    sd_bus* bus = bench::OpenBus();
    Check(support::Eventually([bus] { return IsThere(bus, "com.kivo.proc.ominspect"); }), "waiting for the server");
    const Child owner({argv[0], "--owner"});
    const auto run = [bus] { return SizeOfAnswer(bus, bench::ServerCall(bus, 0, kRequest)) == kRecordSize; };
    const auto query = [bus] { return SizeOfAnswer(bus, bench::ServerCall(bus, 7, "ok")) == sizeof(uint32_t); };
    const Row forward{
        "bare forwarded call", [bus] { return SizeOfAnswer(bus, bench::BareRoad::Forwarded(bus)) == kRecordSize; }, {}};
    const Row call{"bare call", [bus] { return SizeOfAnswer(bus, bench::BareRoad::Straight(bus)) == kRecordSize; }, {}};
    Check(support::Eventually([bus] { return IsThere(bus, "com.kivo.proc.bareowner"); }) &&
              support::Eventually([&] { return road.IsReady(bus); }) && support::Eventually(run),
          "waiting for all processes");
    sleep(11);  // the server has come to rest, and sends events to subscribers only
    const unsigned long idle = bench::PrivateKilobytes(server.Pid());

    bench::MeasureRows({{"synchronous run, nobody listens", run, {}}, forward, {"state query", query, {}}, call},
                       rounds);
    std::optional<Child> listener(std::in_place, std::vector<std::string>{argv[0], "--listener"});
    Check(support::Eventually([bus] { return IsThere(bus, "com.kivo.proc.benchlistener"); }),
          "waiting for the listener");
    bench::MeasureRows({{"synchronous run, one listener", run, {}}, forward}, rounds);
    listener.reset();
    JoinAsClient();
    bench::MeasureRows({{"background run, nobody listens", RunInBackground, {}}, forward}, rounds);
    std::printf("server's private memory when idle: %lu KiB\n", idle);
    OsProcDetach();
    sd_bus_flush_close_unref(bus);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(MeasureAll, argc, argv);
}
