// The journal and the failures on demand, as the fake's functions use them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "fake/fake.h"
#include "fake/scheduler.h"

namespace kivo::fake {

/// Adds an entry and gives it the present time.
void Record(const Lock& lock, Entry entry);

/// Adds an entry of kind kCall.
void RecordCall(const Lock& lock, std::string text);

/// An entry for a message that is sent, payload included; the names must be valid.
Entry EntryOf(Kind kind, const TagMsgBlock& message);

/// The code with which this call of `function` must fail, if it must. Counts the call.
std::optional<uint32_t> Failure(const Lock& lock, std::string_view function);

/// The virtual system time in ms.
uint64_t SystemTime();
void SetSystemTime(uint64_t ms);

}  // namespace kivo::fake
