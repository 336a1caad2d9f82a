// The events that are still to be sent: what is new from memory, what is older from the history.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/history_file.h"
#include "model/event.h"

namespace ominspect::gateway::mqtt {

class Backlog {
public:
    // An empty path: there is no history, and what does not fit into memory is gone.
    explicit Backlog(std::string historyPath) : path_(std::move(historyPath)) {}

    // Takes an event that is told now; passing ones are ignored. Any thread; never waits.
    void Tell(const Event& event);

    // The events after a number, oldest first; none: there are none. By one thread.
    std::vector<history::Row> After(std::uint64_t seq, std::size_t limit);

private:
    std::vector<history::Row> Recent(std::uint64_t seq, std::size_t limit);
    std::vector<history::Row> Kept(std::uint64_t seq, std::size_t limit);

    const std::string path_;
    std::unique_ptr<history::Reader> reader_;  // while there is something to read

    std::mutex mutex_;  // guards everything below
    std::deque<history::Row> recent_;
    std::uint64_t before_ = 0;  // the last number that is not in `recent_` any more
};

}  // namespace ominspect::gateway::mqtt
