// Between the simulator and a requester's image.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default)

extern "C" {

/// What the image asks of the simulator.
uint32_t SimPick(uint32_t limit);
void SimPickItem(char* out, size_t size);
void SimPickCommand(char* out, size_t size);
bool SimRest();
[[noreturn]] void SimViolation(const char* text);

/// Now, in the order of all that happens; a result that the library gives of what was asked since then; an event.
uint64_t SimNow();
void SimGive(const char* item, const char* status, const char* text, uint64_t since);
void SimTellRun(const char* item, const char* status, const char* text);
void SimTellBusy(bool busy);

/// What the server that is there knows of a task. After a cancellation the requester asks past the bus.
enum class SimTask { kUnknown, kStopping, kGoesOn };
SimTask SimStateOfTask(uint32_t taskId);

/// Notes that a state was reached.
void SimReached(const char* state);

/// In the image: opens a session under that name and makes requests until SimRest says no.
void SimRunRequester(const char* name);
}

#pragma GCC visibility pop
