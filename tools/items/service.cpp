// Only the engine client's calls; nothing here knows about commands.
#include "items/service.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>

#include "common/end_signals.h"
#include "common/fd.h"
#include "common/text.h"
#include "items/item_table.h"
#include "items/perfdata.h"
#include "kivo/om_inspect_engine_client.h"
#include "kivo/os_monitor.h"
#include "kivo/os_msg.h"
#include "ominspect/journal.h"
#include "ominspect/perfdata.h"

namespace ominspect::items {
namespace {

constexpr const char* kEngineTask = OM_INSPECT_PERFDATA_TASK;
constexpr const char* kWatchTask = "owner_watch";
constexpr std::size_t kArgumentSize = 128;
constexpr std::uint32_t kLongestSilenceMs = 30000;
constexpr int kSignOfLifeMs = 5000;
// A result for which there is no memory is reported again: without it the item runs on until its limit.
constexpr int kMoreReports = 10;
constexpr std::chrono::milliseconds kReportPause{100};

// The platform's functions carry no context, so these are global: the program's name, the one table, and the event of
// the lost bus.
const char* g_program = "";
ItemTable* g_table = nullptr;
int g_busLost = -1;

Error BusError(const char* what, std::uint32_t code) {
    return OtherError(std::string(what) + ": " + OsMsgResultText(code));
}

std::uint32_t HandleItem(const char* itemName, const char* request, tagKivoOmInspectionResult* result) {
    std::array<char, kArgumentSize> argument{};
    (void)InspectGetArgument(request, argument.data(), argument.size());  // without one, the empty text
    return g_table->Handle(itemName, argument.data(), *result) ? OS_MSG_OK : OS_MSG_ERR_PARAM;
}

void ReportItem(const tagKivoOmInspectionResult& result) {
    std::uint32_t code = InspectReportResult(&result);
    for (int i = 0; code == OS_MSG_ERR_NO_MEMORY && i < kMoreReports; ++i) {
        std::this_thread::sleep_for(kReportPause);
        code = InspectReportResult(&result);
    }
    if (code == OS_MSG_OK) {
        return;
    }
    (void)std::fprintf(stderr, "%s%s: the result of %s is lost: %s\n", OmJournalPrefix(OM_JOURNAL_ERROR), g_program,
                       text::Escaped(result.name).c_str(), OsMsgResultText(code));
}

// The owner's one way to say that an answer comes later. If the requester has left, the answer is dropped silently.
ItemTable::Answer DeferAnswer() {
    std::uint64_t run = 0;
    if (InspectDeferRun(&run) != OS_MSG_OK) {
        return nullptr;
    }
    return [run](const tagKivoOmInspectionResult& result) { (void)InspectAnswerRun(run, &result); };
}

void PublishPerfData(const std::string& item, const std::vector<client::PerfValue>& values) {
    const std::string data = EncodePerfData(item, values);
    OsMsgEvent event{};
    std::memcpy(event.taskName, OM_INSPECT_PERFDATA_TASK, std::strlen(OM_INSPECT_PERFDATA_TASK));
    event.eventId = OM_INSPECT_EVENT_PERFDATA;
    event.dataLen = static_cast<std::uint32_t>(data.size());
    event.data = data.data();
    // If the bus is gone, sending the result fails, which is told.
    (void)OsMsgBroadcastEvent(&event, 1);
}

// A task without messages of its own: its loop ends with the bus.
std::uint32_t IgnoreMessage(TagMsgBlock* /*msg*/) {
    return OS_MSG_OK;
}

std::uint32_t WatchBus() {
    const std::uint32_t result = OsMsgTaskRoutineByName(kWatchTask);
    if (result != OS_MSG_OK) {
        (void)eventfd_write(g_busLost, 1);
    }
    return result;
}

std::optional<Error> CreateWatchTask() {
    OsTaskDescriptor task{};
    std::memcpy(task.name, kWatchTask, std::strlen(kWatchTask));
    task.queueDepth = 1;
    task.handler = IgnoreMessage;
    task.entry = WatchBus;
    const std::uint32_t code = OsTaskCreate(&task);
    if (code != OS_MSG_OK) {
        return BusError("cannot create a task", code);
    }
    return std::nullopt;
}

std::optional<Error> RegisterItems(const OwnerConfig& config) {
    if (const std::uint32_t code = InspectClientInit(kEngineTask); code != OS_MSG_OK) {
        return BusError("cannot start the inspection client", code);
    }
    std::vector<InspectHandlerRecord> records;
    for (const ItemConfig& item : config.items) {
        InspectHandlerRecord record{};
        std::memcpy(record.name, item.name.data(), std::min(item.name.size(), sizeof record.name - 1));
        record.handler = HandleItem;
        const std::chrono::milliseconds limit = item.limit + kServerGrace;
        record.timeout = static_cast<std::uint32_t>(limit.count());
        records.push_back(record);
    }
    const std::uint32_t code = InspectRegHandler(records.data(), static_cast<std::uint32_t>(records.size()));
    if (code != OS_MSG_OK) {
        return BusError("cannot register the items", code);
    }
    return std::nullopt;
}

// Tells the service manager that the items are there; from now on it waits for signs of life.
OsMonitorProInfo TellManager(const std::string& process) {
    OsMonitorProInfo info{};
    std::memcpy(info.procName, process.data(), std::min(process.size(), sizeof info.procName - 1));
    info.timeout = kLongestSilenceMs;
    (void)OsMonitorProReg(&info);
    return info;
}

// Waits for a signal, or for the end of the bus, which is an error, and gives signs of life.
std::optional<Error> WaitForEnd(const EndSignals& signals, const OsMonitorProInfo& info) {
    pollfd fds[] = {{signals.Fd(), POLLIN, 0}, {g_busLost, POLLIN, 0}};
    while (poll(fds, 2, kSignOfLifeMs) <= 0) {
        (void)OsMonitorProActivate(info.procName);
    }
    if (fds[0].revents != 0) {
        return std::nullopt;
    }
    return client::BusLostError();
}

// Joins the bus, and leaves it at the end of the scope.
class BusPlace {
public:
    explicit BusPlace(const std::string& process) : result_(OsProcAttach(process.c_str())) {}
    ~BusPlace() {
        if (result_ == OS_MSG_OK) {
            OsProcDetach();
        }
    }
    BusPlace(const BusPlace&) = delete;
    BusPlace& operator=(const BusPlace&) = delete;
    std::uint32_t Result() const { return result_; }

private:
    std::uint32_t result_;
};

std::optional<Error> ServeTable(const OwnerConfig& config, ItemTable& table, const EndSignals& signals) {
    const BusPlace place(config.process);
    if (place.Result() == OS_MSG_ERR_DENIED) {
        return OtherError("cannot join the message bus: access denied: the bus at " + std::string(OsMsgBusAddress()) +
                          " does not let this user join as the process \"" + text::Escaped(config.process) +
                          R"("; add the user to the group "ominspect-owner")");
    }
    if (place.Result() != OS_MSG_OK) {
        return BusError("cannot join the message bus", place.Result());
    }
    auto error = CreateWatchTask();
    if (!error) {
        error = RegisterItems(config);
    }
    if (!error) {
        (void)std::fprintf(stderr, "%s%s: %s serves %zu items\n", OmJournalPrefix(OM_JOURNAL_INFO), g_program,
                           text::Escaped(config.process).c_str(), config.items.size());
        error = WaitForEnd(signals, TellManager(config.process));
    }
    table.Shutdown();
    for (const ItemConfig& item : config.items) {
        (void)InspectUnRegHandler(item.name.c_str());
    }
    return error;
}

}  // namespace

std::optional<Error> Serve(const char* program, const OwnerConfig& config) {
    const EndSignals signals;
    (void)std::signal(SIGPIPE, SIG_IGN);
    // If it were ignored, the system would reap the commands, and their exit statuses would be lost.
    (void)std::signal(SIGCHLD, SIG_DFL);
    const UniqueFd busLost(eventfd(0, EFD_CLOEXEC));
    if (!busLost) {
        return OtherError("cannot create an event: " + SystemText(errno));
    }
    ItemTable table(config, ReportItem, PublishPerfData, DeferAnswer);
    g_program = program;
    g_busLost = busLost.Get();
    g_table = &table;
    auto error = ServeTable(config, table, signals);
    g_table = nullptr;
    return error;
}

}  // namespace ominspect::items
