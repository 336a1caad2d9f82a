// An owner in C++: how busy the processors are, which takes two seconds to measure. It answers "running" and reports
// later, with its progress meanwhile.
#include <unistd.h>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include <kivo/om_inspect_engine_client.h>
#include <kivo/os_msg.h>

static std::jthread g_run;  // the run that is under way

static tagKivoOmInspectionResult Record(const std::string& status, const std::string& text) {
    tagKivoOmInspectionResult record{"cpu_busy", {}, {}};
    status.copy(record.status, sizeof record.status - 1);
    text.copy(record.text, sizeof record.text - 1);
    return record;
}

static double IdleSeconds() {
    double idle = 0;  // the second number; the first is the time since the start
    std::ifstream("/proc/uptime") >> idle >> idle;
    return idle / std::max(1U, std::thread::hardware_concurrency());
}

static void Measure(const std::stop_token& stop) {
    const double begin = IdleSeconds();
    std::string status = "running";
    for (int half = 1; status == "running"; ++half) {
        // Also keeps the first report from following the answer "running" at once, which the server would forget.
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        const double busy = 100 * std::clamp(1 - (IdleSeconds() - begin) / (half * 0.5), 0.0, 1.0);
        status = stop.stop_requested() ? "fail" : half < 4 ? "running" : "success";
        const auto record = Record(status, std::to_string(static_cast<int>(busy)) + " % busy");
        InspectReportResult(&record);
    }
}

// Runs on the library's thread, so it must not take long.
static std::uint32_t CpuBusy(const char* /*item*/, const char* request, tagKivoOmInspectionResult* result) {
    char cmd[OM_INSPECT_TEXT_SIZE];
    const bool stop = InspectGetArgument(request, cmd, sizeof cmd) == OS_MSG_OK && std::string(cmd) == "stop";
    g_run = stop ? std::jthread() : std::jthread(Measure);  // stops the run before, and waits for its end
    *result = stop ? Record("success", "stopping") : Record("running", "");
    return 0;
}

// A task without messages: its loop returns when the process leaves the bus, or has lost it.
static std::uint32_t WatchBus() {
    OsMsgTaskRoutineByName("bus_watch");
    return static_cast<std::uint32_t>(kill(getpid(), SIGTERM));
}

static bool Failed(std::uint32_t result) {
    return result != OS_MSG_OK && std::fprintf(stderr, "owner: %s\n", OsMsgResultText(result)) > 0;
}

int main() {
    sigset_t ends;  // blocked before the library starts its threads: main waits for them
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    const OsTaskDescriptor watch{"bus_watch", 0, 1, [](TagMsgBlock*) { return OS_MSG_OK; }, WatchBus};
    const InspectHandlerRecord item{"cpu_busy", CpuBusy, 10000};  // after 10 s the server gives a run up
    // From InspectClientInit on the library registers the items again by itself when the server restarts.
    if (Failed(OsProcAttach("example-cpp")) || Failed(OsTaskCreate(&watch)) || Failed(InspectClientInit("items")) ||
        Failed(InspectRegHandler(&item, 1))) {
        return 1;
    }
    int number = 0;
    sigwait(&ends, &number);
    g_run = {};  // stops what runs, and waits for its end
    const bool lost = Failed(InspectUnRegHandler(item.name));
    OsProcDetach();
    return lost ? 1 : 0;
}
