// The requester itself is in the image; here is what it asks of the simulator.
#include "images/requester.h"

#include <algorithm>

#include "actors/actors.h"
#include "actors/items.h"
#include "model/checker.h"
#include "model/ledger.h"
#include "world/choices.h"
#include "world/events.h"
#include "world/journal.h"
#include "world/outcome.h"
#include "world/process.h"

namespace {

void Give(const std::string& text, char* out, size_t size) {
    const size_t length = std::min(text.size(), size - 1);
    text.copy(out, length);
    out[length] = '\0';
}

}  // namespace

uint32_t SimPick(uint32_t limit) {
    const sim::InPlatform platform;
    return sim::Pick(limit);
}

void SimPickItem(char* out, size_t size) {
    const sim::InPlatform platform;
    Give(sim::PickItem(), out, size);
}

void SimPickCommand(char* out, size_t size) {
    const sim::InPlatform platform;
    Give(sim::PickCommand(), out, size);
}

bool SimRest() {
    return sim::Rest();
}

void SimViolation(const char* text) {
    const sim::InPlatform platform;
    sim::Violation(text);
}

uint64_t SimNow() {
    return sim::model::TheLedger().Next();
}

void SimGive(const char* item, const char* status, const char* text, uint64_t since) {
    const sim::InPlatform platform;
    sim::model::TheLedger().Give(sim::CurrentProcess().name, {item, status, text}, since);
}

void SimTellRun(const char* item, const char* status, const char* text) {
    const sim::InPlatform platform;
    sim::TellEvent(8, sim::model::Words{item, status, text}.Describe());
}

void SimTellBusy(bool busy) {
    const sim::InPlatform platform;
    sim::TellEvent(9, busy ? "busy" : "idle");
}

SimTask SimStateOfTask(uint32_t taskId) {
    const sim::InPlatform platform;
    const sim::Process* const server = sim::FindProcess("ominspect");
    const auto* const checker =
        server == nullptr ? nullptr : dynamic_cast<const sim::model::Checker*>(server->observer);
    const auto isStopping = checker == nullptr ? std::nullopt : checker->IsStopping(taskId);
    if (!isStopping) {
        return SimTask::kUnknown;
    }
    return *isStopping ? SimTask::kStopping : SimTask::kGoesOn;
}

void SimReached(const char* state) {
    const sim::InPlatform platform;
    sim::Reached(state);
}

void sim::RunRequester(const Image& image, const std::string& name) {
    image.Find<decltype(SimRunRequester)>("SimRunRequester")(name.c_str());
}
