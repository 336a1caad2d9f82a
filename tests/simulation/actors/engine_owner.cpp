// The library is in the image, the item's work is here.
#include <map>

#include "actors/actors.h"
#include "actors/items.h"
#include "actors/owner_deeds.h"
#include "kivo/om_inspect_engine_client.h"
#include "world/choices.h"
#include "world/journal.h"
#include "world/process.h"

namespace sim {

namespace {

// By process: the function of its image that reports.
std::map<const Process*, decltype(InspectReportResult)*>& Reporters() {
    static auto& reporters = *new std::map<const Process*, decltype(InspectReportResult)*>;
    return reporters;
}

uint32_t RunItem(const char* itemName, const char* request, tagKivoOmInspectionResult* result) {
    auto* const report = Reporters()[&CurrentProcess()];
    if (TheManners().lies && OneIn(8)) {
        return 1;
    }
    RunOwned(itemName, request, *result, [report](const auto& record) { (void)report(&record); });
    return 0;
}

InspectHandlerRecord RecordOf(const char* item) {
    InspectHandlerRecord record{{}, RunItem, PickOf(0U, 1000U, 3500U, 60000U, 400000U)};
    std::string(item).copy(record.name, sizeof record.name - 1);
    return record;
}

// Once that has succeeded, no run that is sent later comes to the server earlier.
void Register(decltype(InspectRegHandler)* add, const char* item) {
    const InspectHandlerRecord record = RecordOf(item);
    if (add(&record, 1) == OS_MSG_OK && CurrentProcess().Attached() && Self()->lastArrival > Now()) {
        Violation("InspectRegHandler returns before its message has arrived");
    }
}

}  // namespace

void RunEngineOwner(const Image& image, const std::string& name, uint32_t number) {
    auto* const init = image.Find<decltype(InspectClientInit)>("InspectClientInit");
    auto* const add = image.Find<decltype(InspectRegHandler)>("InspectRegHandler");
    auto* const remove = image.Find<decltype(InspectUnRegHandler)>("InspectUnRegHandler");
    {
        const InPlatform platform;
        Reporters()[&CurrentProcess()] = image.Find<decltype(InspectReportResult)>("InspectReportResult");
    }
    if (OsProcAttach(name.c_str()) != OS_MSG_OK || init("own_task") != OS_MSG_OK) {
        return;
    }
    for (uint32_t i = 0; i < 3; ++i) {
        Register(add, OwnedItem(number * 2 + i));
    }
    while (Rest()) {
        const char* const item = OwnedItem(number * 2 + Pick(3));
        if (TheManners().unregisters && OneIn(4)) {
            (void)remove(item);
        } else if (OneIn(4)) {
            Register(add, item);
        }
    }
}

}  // namespace sim
