// The system clock (os_time.h): virtual time, which only SetNow sets.
#include "kivo/os_time.h"

#include "fake/fake.h"
#include "fake/journal.h"
#include "fake/scheduler.h"

namespace kivo::fake {

namespace {

uint64_t g_timeOffset = kStartTime;  // the system time when no virtual time had passed yet; it may wrap

}  // namespace

uint64_t SystemTime() {
    return Scheduler::Get().Elapsed() + g_timeOffset;
}

void SetSystemTime(uint64_t ms) {
    g_timeOffset = ms - Scheduler::Get().Elapsed();
}

}  // namespace kivo::fake

uint64_t OsGetSystemTime(void) {
    const kivo::fake::Lock lock = kivo::fake::Hold();
    return kivo::fake::SystemTime();
}
