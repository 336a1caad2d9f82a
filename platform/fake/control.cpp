// The remote control: reset, and the passing of virtual time.
#include "fake/fake.h"
#include "fake/journal.h"
#include "fake/process.h"
#include "fake/reset.h"
#include "fake/scheduler.h"

namespace kivo::fake {

void Reset() {
    Lock lock = Hold();
    ResetTimers(lock);
    Scheduler::Get().Adopt(TestProcess());
    ResetProcesses();
    ResetScripts();
    ResetFailures();
    ResetJournal();
    ResetMemory();
    ResetMonitor();
    ResetLogClient();
    ResetEngineClient();
    SetSystemTime(kStartTime);
}

bool Finish(uint64_t seconds) {
    Lock lock = Hold();
    Scheduler& scheduler = Scheduler::Get();
    return scheduler.WaitFor(lock, "threads to end", scheduler.LiveChannel(), scheduler.Elapsed() + seconds * 1000,
                             [&scheduler] { return scheduler.Live() == 0; });
}

uint64_t Now() {
    const Lock lock = Hold();
    return SystemTime();
}

void SetNow(uint64_t ms) {
    const Lock lock = Hold();
    SetSystemTime(ms);
}

void Pass(uint64_t seconds) {
    Lock lock = Hold();
    Sleep(lock, seconds * 1000);
    Scheduler::Get().Settle(lock);
}

void Settle() {
    Lock lock = Hold();
    Scheduler::Get().Settle(lock);
}

size_t LiveThreads() {
    const Lock lock = Hold();
    return Scheduler::Get().Live();
}

}  // namespace kivo::fake
