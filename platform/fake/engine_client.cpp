// Inspection-engine client (om_inspect_engine_client.h): items are recorded and not registered with any server.
#include "kivo/om_inspect_engine_client.h"

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "common/msg_rules.h"
#include "common/records.h"
#include "fake/fake.h"
#include "fake/journal.h"
#include "fake/process.h"
#include "fake/reset.h"
#include "fake/scheduler.h"

using namespace kivo::fake;

namespace {

struct Client {
    bool initialised{};
    std::vector<InspectHandlerRecord> handlers;
};

Client& TheClient() {
    static Client& client = *new Client;
    return client;
}

std::string NameOf(const InspectHandlerRecord& record) {
    return record.name;
}

auto Find(const std::string& name) {
    return std::ranges::find(TheClient().handlers, name, NameOf);
}

}  // namespace

void kivo::fake::ResetEngineClient() {
    TheClient() = {};
}

std::vector<InspectHandlerRecord> kivo::fake::RegisteredHandlers() {
    const Lock lock = Hold();
    return TheClient().handlers;
}

uint32_t InspectClientInit(const char* clientName) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "InspectClientInit")) {
        return *code;
    }
    if (clientName == nullptr || !kivo::IsValidName(clientName)) {
        return OS_MSG_ERR_PARAM;
    }
    RecordCall(lock, std::string("InspectClientInit(") + clientName + ")");
    if (TheClient().initialised) {
        return OS_MSG_ERR_ATTACHED;
    }
    TheClient().initialised = true;
    return OS_MSG_OK;
}

uint32_t InspectRegHandler(const struct InspectHandlerRecord* records, uint32_t count) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "InspectRegHandler")) {
        return *code;
    }
    const std::span<const InspectHandlerRecord> all(records, records == nullptr ? 0 : count);
    if (all.empty() || !std::ranges::all_of(all, [](const auto& record) { return kivo::IsValid(record); })) {
        return OS_MSG_ERR_PARAM;
    }
    if (!TheClient().initialised) {
        return OS_MSG_ERR_NOT_ATTACHED;
    }
    for (const InspectHandlerRecord& record : all) {
        const std::string name = NameOf(record);
        RecordCall(lock, "InspectRegHandler(" + name + ", " + std::to_string(record.timeout) + ")");
        const auto known = Find(name);
        if (known == TheClient().handlers.end()) {
            TheClient().handlers.push_back(record);
        } else {
            *known = record;
        }
    }
    return OS_MSG_OK;
}

uint32_t InspectUnRegHandler(const char* itemName) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "InspectUnRegHandler")) {
        return *code;
    }
    if (itemName == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    RecordCall(lock, std::string("InspectUnRegHandler(") + itemName + ")");
    const auto known = Find(itemName);
    if (known == TheClient().handlers.end()) {
        return OS_MSG_ERR_PARAM;
    }
    TheClient().handlers.erase(known);
    return OS_MSG_OK;
}

uint32_t InspectReportResult(const struct tagKivoOmInspectionResult* result) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "InspectReportResult")) {
        return *code;
    }
    if (result == nullptr || !kivo::IsValid(*result)) {
        return OS_MSG_ERR_PARAM;
    }
    if (!TheClient().initialised) {
        return OS_MSG_ERR_NOT_ATTACHED;
    }
    RecordCall(lock, std::string("InspectReportResult(") + result->name + ", " + result->status + ")");
    return OS_MSG_OK;
}

// No server asks for a run here, so none is ever served or open.
uint32_t InspectDeferRun(uint64_t* run) {
    if (run == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    *run = 0;
    return OS_MSG_ERR_NO_REQUEST;
}

uint32_t InspectAnswerRun(uint64_t /*run*/, const struct tagKivoOmInspectionResult* result) {
    return result == nullptr || !kivo::IsValid(*result) ? OS_MSG_ERR_PARAM : OS_MSG_ERR_NO_REQUEST;
}

uint32_t InspectForEachOwnedItem(InspectOwnedItemTaker take, void* context, uint32_t /*timeoutMs*/) {
    std::vector<InspectOwnedItem> owned;
    {
        const Lock lock = Hold();
        if (const auto code = Failure(lock, "InspectForEachOwnedItem")) {
            return *code;
        }
        if (take == nullptr) {
            return OS_MSG_ERR_PARAM;
        }
        RecordCall(lock, "InspectForEachOwnedItem()");
        for (const InspectHandlerRecord& record : TheClient().handlers) {
            InspectOwnedItem& item = owned.emplace_back();
            NameOf(record).copy(item.name, sizeof item.name - 1);
            CurrentProcess().name.copy(item.procName, sizeof item.procName - 1);
            item.timeout = record.timeout;
            item.registered = 1;
        }
    }
    for (const InspectOwnedItem& item : owned) {
        take(&item, context);
    }
    return OS_MSG_OK;
}
