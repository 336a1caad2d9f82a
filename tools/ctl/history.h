// The last result of each item, as far as this user's commands have seen it. The server tells a result when a run ends
// and has no request that reads it again, so the commands remember what they were told.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "ominspect/client/types.h"
#include "times.h"

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

    // Takes note of a result; of a status that is none ("running", "idle", none at all) not.
    void Add(const client::ItemResult& result, TimePoint time);

    // Puts what was added beside what is in the file by now. False with errno set when the file cannot be written; true
    // when there is nothing to save, or nowhere.
    bool Save();

    // What the file says of an item.
    std::optional<LastResult> Find(const std::string& item) const;

private:
    using Results = std::map<std::string, LastResult>;  // by item, as valid UTF-8

    std::string path_;  // empty: no home folder
    std::string bus_;
    Results added_;
    Results saved_;
};

}  // namespace ominspect::ctl
