// Listing the items of all owners (om_inspect_engine_client.h) looks at the processes directly.
#include "images/shown_items.h"

#include <cstdio>
#include <vector>

#include "kivo/om_inspect_engine_client.h"
#include "world/bus.h"
#include "world/process.h"

using namespace sim;

void SimConnectionOf(const char* procName, char* out, size_t size) {
    const InPlatform platform;
    const Process* const process = FindProcess(procName);
    std::snprintf(out, size, "%s", process == nullptr ? "" : process->Label().c_str());
}

void SimAwaitPassedOn() {
    const InPlatform platform;
    Point();
    AwaitArrivals(CurrentProcess());
}

void SimHideItems() {
    const InPlatform platform;
    CurrentProcess().items.clear();
}

void SimShowItem(const char* name, uint32_t timeout, const char* server) {
    const InPlatform platform;
    CurrentProcess().items.push_back({name, timeout, server});
}

uint32_t InspectForEachOwnedItem(InspectOwnedItemTaker take, void* context, uint32_t /*timeoutMs*/) {
    const InPlatform platform;
    Point();
    if (take == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    const Process* const server = FindProcess("ominspect");
    std::vector<InspectOwnedItem> owned;
    ForEachProcess([&](const Process& process) {
        for (const ShownItem& shown : process.items) {
            InspectOwnedItem& item = owned.emplace_back();
            shown.name.copy(item.name, sizeof item.name - 1);
            process.name.copy(item.procName, sizeof item.procName - 1);
            item.timeout = shown.timeout;
            item.registered = server != nullptr && shown.server == server->Label() ? 1 : 0;
        }
    });
    const InProcess process;
    for (const InspectOwnedItem& item : owned) {
        take(&item, context);
    }
    return OS_MSG_OK;
}
