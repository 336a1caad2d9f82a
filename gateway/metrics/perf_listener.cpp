// A process is asked for its events once; the message layer asks it again when it comes back.
#include "metrics/perf_listener.h"

#include "common/text.h"
#include "ominspect/messages.h"

namespace ominspect::gateway {
namespace {

// The bus daemon bounds what a connection may ask for.
constexpr std::size_t kMostProcesses = 128;

}  // namespace

void PerfListener::Look(client::Session& session, const client::Inventory& inventory) {
    Look(inventory, [&](const std::string& process) {
        return session.SubscribePerfData(
            process, [this, process](const client::PerfData& perfData) { metrics_.TakePerfData(process, perfData); });
    });
}

void PerfListener::Look(const client::Inventory& inventory, const Hear& hear) {
    std::set<std::string> owners;
    for (const client::Item& item : inventory.items) {
        for (const client::ItemOwner& owner : item.owners) {
            owners.insert(owner.process);
        }
    }
    owners.erase(OM_INSPECT_PROC_NAME);
    // One that comes back is asked for once more, which costs the bus daemon nothing.
    std::erase_if(heard_, [&](const std::string& process) { return !owners.contains(process); });
    std::string wrong;
    for (const std::string& process : owners) {
        if (heard_.contains(process)) {
            continue;
        }
        if (heard_.size() == kMostProcesses) {
            wrong = "more than " + std::to_string(kMostProcesses) + " processes own items";
            break;
        }
        if (const auto error = hear(process)) {
            wrong = "what " + text::OneLine(process) + " measures is not heard: " + error->text;
        } else {
            heard_.insert(process);
        }
    }
    metrics_.ForgetFormerOwners();
    if (wrong.empty() && metrics_.IsFull()) {
        wrong = "the items measure as much as can be shown, " + std::to_string(PerfValues::kMost) + " values";
    }
    parts_.Set("metrics", wrong.empty() ? PartState::kOk : PartState::kDegraded, wrong);
}

}  // namespace ominspect::gateway
