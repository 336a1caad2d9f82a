#include "support/owner.h"

#include <string>
#include <utility>

#include "support/records.h"

namespace support {

InspectClientMsg Owner() {
    return {"owner", "own_task"};
}

void OwnerAnswers(std::string_view status, std::string_view text, uint64_t afterMs) {
    const tagKivoOmInspectionResult result = Result("own name", status, text);
    OwnerDoes([result, afterMs](const kivo::fake::Entry& /*message*/) {
        return kivo::fake::Answer{.data = BytesOf(result), .afterMs = afterMs};
    });
}

void OwnerDoes(kivo::fake::Script script) {
    kivo::fake::SetPeer("owner", "own_task", std::move(script));
}

void OwnerLeaves() {
    kivo::fake::RemovePeer("owner", "own_task");
}

}  // namespace support
