// How long a run of an at-once item takes over the bus, beside a bare forwarded sd-bus call.
//
// All go client -> first process -> second process and back through the same bus daemon, in turn, in one run:
//   run         this program -> ominspect -> an owner, message 0 and its reply
//   background  the same with message 18, whose result comes as message 0 to a task of this program
//   forward     this program -> a process that only forwards -> a process that only answers, all bare sd-bus
// Prints median and 99th percentile of each and their ratios, and the idle server's private memory.
//
//     sync_run [rounds]
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
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
using bench::OpenBus;
using bench::PrivateKilobytes;

constexpr const char* kRequest = R"({"name":"ok","cmd":"run"})";
constexpr size_t kRecordSize = 192;
constexpr const char* kTask = "results";

// ---- the bare road ----

// One call with a byte array, answered with one; returns the size of the answer.
size_t Call(sd_bus* bus, const char* destination, const void* data, size_t size) {
    sd_bus_message* call = nullptr;
    sd_bus_message* reply = nullptr;
    const void* answer = nullptr;
    size_t length = 0;
    if (sd_bus_message_new_method_call(bus, &call, destination, "/bench", "bench.Road", "Go") >= 0 &&
        sd_bus_message_append_array(call, 'y', data, size) >= 0 && sd_bus_call(bus, call, 0, nullptr, &reply) >= 0) {
        sd_bus_message_read_array(reply, 'y', &answer, &length);
    }
    sd_bus_message_unref(call);
    sd_bus_message_unref(reply);
    return length;
}

int OnGo(sd_bus_message* call, void* next, sd_bus_error* /*error*/) {
    const void* data = nullptr;
    size_t size = 0;
    sd_bus_message_read_array(call, 'y', &data, &size);
    if (next != nullptr) {
        Call(sd_bus_message_get_bus(call), static_cast<const char*>(next), data, size);
    }
    const std::array<unsigned char, kRecordSize> record{};
    sd_bus_message* reply = nullptr;
    sd_bus_message_new_method_return(call, &reply);
    sd_bus_message_append_array(reply, 'y', record.data(), record.size());
    const int sent = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return sent;
}

const sd_bus_vtable kRoad[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Go", "ay", "ay", OnGo, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

[[noreturn]] void ServeBare(const char* name, char* next) {
    sd_bus* bus = OpenBus();
    Check(sd_bus_add_object_vtable(bus, nullptr, "/bench", "bench.Road", kRoad, next) >= 0 &&
              sd_bus_request_name(bus, name, 0) >= 0,
          "serving the bare road");
    for (;;) {
        if (sd_bus_process(bus, nullptr) == 0) {
            sd_bus_wait(bus, UINT64_MAX);
        }
    }
}

// ---- the server's road ----

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

// A synchronous message to the server; whether it was answered, with the first `size` bytes of the answer in `answer`.
bool Ask(uint32_t id, const char* payload, void* answer, size_t size) {
    TagMsgBlock block{};
    std::strcpy(block.dstProcName, "ominspect");
    std::strcpy(block.dstTaskName, "iom_srv_task");
    std::strcpy(block.replyTaskName, kTask);
    block.msgId = id;
    block.data = reinterpret_cast<unsigned char*>(const_cast<char*>(payload));
    block.dataLen = static_cast<uint32_t>(std::strlen(payload));
    TagMsgBlock* resp = nullptr;
    const bool good = OsMsgSynSend(&block, &resp, 5000) == OS_MSG_OK && resp->dataLen == size;
    if (good && size > 0) {
        std::memcpy(answer, resp->data, size);
    }
    OsMsgSynRespFree(resp);
    return good;
}

bool ServerAnswers() {
    uint32_t state = 0;
    return Ask(7, "", &state, sizeof state);
}

bool RunOnce() {
    std::array<char, kRecordSize> record{};
    return Ask(0, kRequest, record.data(), record.size()) && std::strcmp(record.data() + 32, "success") == 0;
}

bool RunInBackground() {
    std::unique_lock<std::mutex> lock(g_lock);
    const size_t before = g_results;
    lock.unlock();
    if (!Ask(18, kRequest, nullptr, 0)) {
        return false;
    }
    lock.lock();
    return g_arrived.wait_for(lock, std::chrono::seconds(5), [before] { return g_results == before + 1; });
}

// ---- measuring ----

double Time(const std::function<bool()>& step, const char* what) {
    const auto begin = std::chrono::steady_clock::now();
    Check(step(), what);
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

int main(int argc, char** argv) {
    char backend[] = "com.kivo.proc.benchbackend";
    if (argc > 1 && std::strcmp(argv[1], "--backend") == 0) {
        ServeBare("com.kivo.proc.benchbackend", nullptr);
    }
    if (argc > 1 && std::strcmp(argv[1], "--forwarder") == 0) {
        ServeBare("com.kivo.proc.benchforwarder", backend);
    }
    const size_t rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 5000;
    Check(rounds >= 100, "rounds of at least 100");

    using support::Child;
    const support::PrivateBus bus;
    const Child last({argv[0], "--backend"});
    const Child forwarder({argv[0], "--forwarder"});
    const Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=/tmp"});
    Check(OsProcAttach("bench") == OS_MSG_OK, "joining the bus");
    Check(support::Eventually(ServerAnswers), "waiting for the server");
    OsTaskDescriptor task{};
    std::strcpy(task.name, kTask);
    task.queueDepth = 16;
    task.handler = CountResult;
    Check(OsTaskCreate(&task) == OS_MSG_OK, "creating a task");
    const Child owner({RAW_OWNER_PROGRAM, "owner1", "ok"});
    sd_bus* bare = OpenBus();
    const auto forward = [bare] {
        return Call(bare, "com.kivo.proc.benchforwarder", kRequest, std::strlen(kRequest)) == kRecordSize;
    };
    Check(support::Eventually(forward) && support::Eventually(RunOnce), "waiting for all processes");
    sleep(11);  // the server has come to rest, and sends events to subscribers only
    const unsigned long idle = PrivateKilobytes(server.Pid());

    std::vector<double> runs;
    std::vector<double> backgrounds;
    std::vector<double> forwards;
    for (size_t i = 0; i < rounds; ++i) {
        runs.push_back(Time(RunOnce, "a run"));
        backgrounds.push_back(Time(RunInBackground, "a run in the background"));
        forwards.push_back(Time(forward, "a forwarded call"));
    }
    const Figures run = Evaluate(runs);
    const Figures background = Evaluate(backgrounds);
    const Figures bareFigures = Evaluate(forwards);
    std::printf("%zu rounds, microseconds      median      p99\n", rounds);
    std::printf("synchronous run           %10.1f %8.1f\n", run.median, run.p99);
    std::printf("run in the background     %10.1f %8.1f\n", background.median, background.p99);
    std::printf("bare forwarded call       %10.1f %8.1f\n", bareFigures.median, bareFigures.p99);
    std::printf("synchronous / bare        %10.2f %8.2f\n", run.median / bareFigures.median, run.p99 / bareFigures.p99);
    std::printf("background / synchronous  %10.2f %8.2f\n", background.median / run.median, background.p99 / run.p99);
    std::printf("server's private memory when idle: %lu KiB\n", idle);
    sd_bus_flush_close_unref(bare);
    OsProcDetach();
    return 0;
}
