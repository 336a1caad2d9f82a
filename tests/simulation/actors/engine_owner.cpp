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

// The functions of an image that an item's work calls.
struct Library {
    decltype(InspectReportResult)* report;
    decltype(InspectDeferRun)* defer;
    decltype(InspectAnswerRun)* answer;
};

// By process.
std::map<const Process*, Library>& Libraries() {
    static auto& libraries = *new std::map<const Process*, Library>;
    return libraries;
}

// Answers a run later, on another thread, while the next ones are served.
bool Defer(const Library& library, const std::string& item) {
    uint64_t run = 0;
    if (library.defer(&run) != OS_MSG_OK) {
        return false;
    }
    const InPlatform platform;
    Spawn(CurrentProcess(), "answer", [answer = library.answer, run, item] {
        {
            const InPlatform waiting;
            (void)Wait("its own work", nullptr, Now() + Pick(PickOf(5000U, 60000U)) * kMilli);
        }
        const auto result = Utter(item, PickOf("success", "warn", "fail"), "deferred");
        Reached(answer(run, &result) == OS_MSG_OK ? "owner: deferred answer" : "owner: deferred answer, nobody waits");
    });
    return true;
}

uint32_t RunItem(const char* itemName, const char* request, tagKivoOmInspectionResult* result) {
    const Library library = Libraries()[&CurrentProcess()];
    if (TheManners().lies && OneIn(8)) {
        return 1;
    }
    if (OneIn(4) && Defer(library, itemName)) {
        return 0;
    }
    RunOwned(itemName, request, *result, [report = library.report](const auto& record) { (void)report(&record); });
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
        Libraries()[&CurrentProcess()] = {image.Find<decltype(InspectReportResult)>("InspectReportResult"),
                                          image.Find<decltype(InspectDeferRun)>("InspectDeferRun"),
                                          image.Find<decltype(InspectAnswerRun)>("InspectAnswerRun")};
    }
    if (OsProcAttach(name.c_str()) != OS_MSG_OK) {
        return;
    }
    while (init("own_task") != OS_MSG_OK) {
        if (!Rest()) {
            return;
        }
    }
    for (uint32_t i = 0; i < 3; ++i) {
        Register(add, OwnedItem(number * 2 + i));
    }
    while (Rest()) {
        const char* const item = OwnedItem(number * 2 + Pick(3));
        if (TheManners().unregisters && OneIn(4)) {
            (void)remove(item);
        } else if (OneIn(4) && !IsLeftToLibraries()) {
            Register(add, item);
        }
    }
}

}  // namespace sim
