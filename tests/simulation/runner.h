// Runs lives in processes of their own, several side by side.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "world/choices.h"
#include "world/outcome.h"
#include "world/world.h"

namespace sim {

class Runner {
public:
    Runner(WorldImages images, size_t sideBySide);
    ~Runner();
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    /// Makes the choices of the next run; null: there is none.
    using Next = std::function<std::unique_ptr<Choices>(uint64_t number)>;
    /// Gets each run that has ended; false ends all.
    using Ended = std::function<bool(uint64_t number, const Outcome& outcome)>;
    void Run(const Next& next, const Ended& ended);

    /// One run; with a journal if there is a path. Its outcome is valid until the next one.
    const Outcome& RunOne(Choices choices, const std::string& journal = {});

private:
    struct Slot {
        Outcome* outcome{};
        int pid{};
        uint64_t number{};
    };

    void Start(Slot& slot, Choices& choices, const std::string& journal);
    static void Collect(Slot& slot, int status);

    WorldImages images_;
    std::vector<Slot> slots_;
};

}  // namespace sim
