// An owner through the engine client library.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "items.h"
#include "kivo/om_inspect_engine_client.h"
#include "kivo/os_msg.h"
#include "roles.h"
#include "support/eventually.h"

namespace soak {

namespace {

using Clock = std::chrono::steady_clock;

// A run that has its result later.
struct Pending {
    Clock::time_point due;
    tagKivoOmInspectionResult result;
    uint64_t deferred;  // the answer that is owed; 0: it is reported
};

std::mutex g_lock;
std::condition_variable g_changed;
std::deque<Pending> g_pending;

tagKivoOmInspectionResult Good(const char* item) {
    tagKivoOmInspectionResult result{};
    std::snprintf(result.name, sizeof result.name, "%s", item);
    std::snprintf(result.status, sizeof result.status, "success");
    std::snprintf(result.text, sizeof result.text, "fine");
    return result;
}

void Later(const char* item, std::chrono::milliseconds time, uint64_t deferred) {
    const std::lock_guard lock(g_lock);
    g_pending.push_back({Clock::now() + time, Good(item), deferred});
    g_changed.notify_one();
}

uint32_t Ok(const char* item, const char* /*request*/, tagKivoOmInspectionResult* result) {
    *result = Good(item);
    return 0;
}

uint32_t Slow(const char* item, const char* request, tagKivoOmInspectionResult* result) {
    uint64_t run = 0;
    if (InspectDeferRun(&run) != OS_MSG_OK) {
        return Ok(item, request, result);
    }
    Later(item, std::chrono::milliseconds(20), run);
    return 0;
}

// Not within the instant in which it answers "running": the server would forget the report.
uint32_t Late(const char* item, const char* /*request*/, tagKivoOmInspectionResult* result) {
    static Dice dice(1);
    std::snprintf(result->status, sizeof result->status, "running");
    Later(item, std::chrono::milliseconds(500 + dice.Below(500)), 0);
    return 0;
}

// Gives the later results when they are due.
[[noreturn]] void Deliver() {
    std::unique_lock lock(g_lock);
    for (;;) {
        Clock::time_point next = Clock::time_point::max();
        for (auto pending = g_pending.begin(); pending != g_pending.end();) {
            if (pending->due > Clock::now()) {
                next = std::min(next, pending->due);
                ++pending;
                continue;
            }
            if (pending->deferred != 0) {
                (void)InspectAnswerRun(pending->deferred, &pending->result);
            } else {
                (void)InspectReportResult(&pending->result);
            }
            pending = g_pending.erase(pending);
        }
        if (next == Clock::time_point::max()) {
            g_changed.wait(lock);
        } else {
            g_changed.wait_until(lock, next);
        }
    }
}

InspectHandlerRecord Record(const std::string& name, InspectItemHandler handler) {
    constexpr uint32_t kLimitMs = 3000;
    InspectHandlerRecord record{};
    name.copy(record.name, sizeof record.name - 1);
    record.handler = handler;
    record.timeout = kLimitMs;
    return record;
}

}  // namespace

int RunOwner(size_t number) {
    const std::string name = "soak-owner" + std::to_string(number);
    // The bus may not have noticed yet that the owner before was killed.
    if (!support::Eventually([&name] { return OsProcAttach(name.c_str()) != OS_MSG_ERR_NAME_TAKEN; })) {
        return kFailed;
    }
    std::vector<InspectHandlerRecord> records{Record(ItemOf(number, "ok"), Ok), Record(ItemOf(number, "also_ok"), Ok),
                                              Record(ItemOf(number, "sync"), Ok), Record(ItemOf(number, "slow"), Slow),
                                              Record(ItemOf(number, "late"), Late)};
    if (number == 0) {
        records.push_back(Record(kOtherGroup, Ok));
    }
    if (InspectClientInit("owner") != OS_MSG_OK ||
        InspectRegHandler(records.data(), static_cast<uint32_t>(records.size())) != OS_MSG_OK) {
        return kFailed;
    }
    std::puts("registered");
    std::fflush(stdout);
    Deliver();
}

}  // namespace soak
