// Each death follows from the seed and from how much has been done, never from a time.
#include "population.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "roles.h"
#include "support/eventually.h"

namespace soak {

Population::Population(const Plan& plan, Board& board, std::string boardFile)
    : plan_(plan), board_(board), boardFile_(std::move(boardFile)), dice_(plan.seed) {
    for (size_t number = 0; number < plan_.owners; ++number) {
        owners_.push_back(StartOwner(number));
    }
    const bool registered = support::Eventually([this] {
        return std::ranges::all_of(
            owners_, [](const auto& owner) { return owner.Output().find("registered") != std::string::npos; });
    });
    if (!registered) {
        throw std::runtime_error("the owners do not register");
    }
}

support::Child Population::Start(const std::vector<std::string>& role) const {
    static const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    std::vector<std::string> command{self};
    command.insert(command.end(), role.begin(), role.end());
    return support::Child(command);
}

support::Child Population::StartOwner(size_t number) {
    return Start({"owner", std::to_string(number)});
}

// One client of ten asks for groups.
bool Population::IsForGroups(size_t place) const {
    return place % 10 == 0;
}

support::Child Population::StartClient(size_t place) {
    return Start({"client", boardFile_, std::to_string(place), std::to_string(plan_.owners),
                  IsForGroups(place) ? "groups" : "singles", std::to_string(dice_.Below(1'000'000'000))});
}

void Population::KillClient(size_t place) {
    clients_[place].Kill();
    ++deaths_.clients;
    const Kind open = board_.places.at(place).open.exchange(Kind::kNone);
    if (open != Kind::kNone) {
        ++(open == Kind::kGroup ? board_.groupsLeft : board_.singlesLeft);
        ++deaths_.requests;
    }
    clients_[place] = StartClient(place);
    done_[place] = false;
}

void Population::KillOne() {
    if (dice_.Percent(50)) {
        const size_t number = dice_.Below(plan_.owners);
        owners_[number].Kill();
        owners_[number] = StartOwner(number);
        ++deaths_.owners;
    } else {
        KillClient(dice_.Below(plan_.clients));
    }
}

bool Population::ReapClients() {
    for (size_t place = 0; place < clients_.size(); ++place) {
        if (done_[place]) {
            continue;
        }
        const std::optional<int> code = clients_[place].Wait(std::chrono::seconds(0));
        if (code && *code != kWell) {
            std::printf("client %zu ended with %d: %s\n", place, *code, clients_[place].Output().c_str());
            return false;
        }
        done_[place] = code.has_value();
    }
    return true;
}

bool Population::Work(int64_t runs, int64_t groups) {
    board_.singlesLeft = runs;
    board_.groupsLeft = groups;
    clients_.clear();
    done_.assign(plan_.clients, false);
    for (size_t place = 0; place < plan_.clients; ++place) {
        clients_.push_back(StartClient(place));
    }
    int64_t nextDeath = runs - plan_.killEvery;
    bool good = true;
    const auto all = [this] { return std::ranges::find(done_, false) == done_.end(); };
    constexpr std::chrono::hours kNever{24 * 365};  // each request has a limit, and so has each client
    support::Eventually(
        [&] {
            for (; board_.singlesLeft < nextDeath; nextDeath -= plan_.killEvery) {
                KillOne();
            }
            good = ReapClients();
            return !good || all();
        },
        kNever);
    clients_.clear();
    return good;
}

}  // namespace soak
