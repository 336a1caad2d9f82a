// The last result of each item that this user's commands have seen. The server tells a result when a run ends and has
// no request that reads it again, so the commands remember what they were told.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "common/error.h"
#include "common/times.h"
#include "ominspect/client/types.h"

namespace ominspect::ctl {

struct LastResult {
    std::string status;
    std::string text;
    TimePoint time;
};

// Kept in ominspect/results.json below XDG_STATE_HOME, else below ~/.local/state; one for each message bus. A file that
// cannot be read counts as empty. One thread at a time; several processes may save at once.
class History {
public:
    // Of the bus at KIVO_BUS_ADDRESS.
    History();

    // Takes note of a result. Those with the status "running", "idle" or none are skipped.
    void Add(const client::ItemResult& result, TimePoint time);

    // Adds the new results to what the file holds by now. Nothing to save, or no place to save it, is no error.
    std::optional<Error> Save();

    // An item's last result according to the file.
    std::optional<LastResult> Find(const std::string& item) const;

private:
    using Results = std::map<std::string, LastResult>;  // by item, as valid UTF-8

    std::string path_;  // empty: there is no home folder
    std::string bus_;
    Results added_;
    Results saved_;
};

}  // namespace ominspect::ctl
