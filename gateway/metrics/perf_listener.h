// Hears what the owners of items measure, and has the metrics show it.
#pragma once

#include <functional>
#include <optional>
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

    // Begins to hear the owners in the inventory that are not heard yet, and forgets who owns nothing any more.
    using Hear = std::function<std::optional<client::Error>(const std::string& process)>;
    void Look(const client::Inventory& inventory, const Hear& hear);

private:
    Metrics& metrics_;
    Parts& parts_;
    std::set<std::string> heard_;  // processes, by the present session
};

}  // namespace ominspect::gateway
