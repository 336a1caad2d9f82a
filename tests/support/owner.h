// A scripted owner of inspection items: process "owner", task "own_task".
#pragma once

#include <cstdint>
#include <string_view>

#include "base/records.h"
#include "fake/fake.h"

namespace support {

/// The owner's address.
InspectClientMsg Owner();

/// From now on the owner answers every run with this status and text, after some virtual time.
void OwnerAnswers(std::string_view status, std::string_view text, uint64_t afterMs = 0);

/// From now on the owner does what the script says.
void OwnerDoes(kivo::fake::Script script);

/// From now on there is no owner.
void OwnerLeaves();

}  // namespace support
