// The owners and clients of a soak, and their deaths.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "board.h"
#include "items.h"
#include "support/child.h"

namespace soak {

struct Plan {
    uint64_t seed = 1;
    int64_t runs = 0;
    int64_t groups = 0;
    size_t clients = 50;
    size_t owners = 20;
    int64_t killEvery = 100;  // single runs
    double answerWithin = 0;  // seconds, for the next request after the flood; 0: any time
};

struct Deaths {
    size_t owners = 0;
    size_t clients = 0;
    size_t requests = 0;  // that were under way in a client that was killed; each is asked anew
};

class Population {
public:
    // Starts the owners and waits until each has registered its items. Throws std::runtime_error.
    Population(const Plan& plan, Board& board, std::string boardFile);

    // Lets clients make so many requests, and kills owners and clients meanwhile. False, with a line printed, when a
    // process ends that should not. No client is left afterwards; the owners are.
    bool Work(int64_t runs, int64_t groups);

    [[nodiscard]] const Deaths& Killed() const { return deaths_; }

private:
    support::Child Start(const std::vector<std::string>& role) const;
    support::Child StartOwner(size_t number);
    support::Child StartClient(size_t place);
    bool IsForGroups(size_t place) const;
    void KillOne();
    void KillClient(size_t place);
    bool ReapClients();

    const Plan plan_;
    Board& board_;
    const std::string boardFile_;
    Dice dice_;
    std::vector<support::Child> owners_;
    std::vector<support::Child> clients_;
    std::vector<bool> done_;  // by client
    Deaths deaths_;
};

}  // namespace soak
