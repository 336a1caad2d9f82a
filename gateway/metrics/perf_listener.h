// Hears what the owners of items measure, and has the metrics show it.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "metrics/metrics.h"
#include "model/parts.h"
#include "watch/watcher.h"

namespace ominspect::gateway {

class PerfListener : public Follower {
public:
    PerfListener(Metrics& metrics, Parts& parts) : metrics_(metrics), parts_(parts) {}

    void Begin() override { heard_.clear(); }
    void Look(client::Session& session, const client::Inventory& inventory) override;

private:
    Metrics& metrics_;
    Parts& parts_;
    std::set<std::string> heard_;  // processes, by the present session
};

}  // namespace ominspect::gateway
