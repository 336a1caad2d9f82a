// A requester through the client library.
#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "items.h"
#include "ominspect/client/group.h"
#include "ominspect/client/run.h"
#include "ominspect/client/session.h"
#include "roles.h"

namespace soak {

namespace {

using ominspect::client::Error;
using ominspect::client::Limit;
using ominspect::client::Request;
using ominspect::client::Session;

// An ordinary client's patience. Who waits that long has been forgotten.
constexpr std::chrono::seconds kLimit{120};

class Client {
public:
    Client(Board& board, Place& place, Session& session, size_t owners, uint64_t seed)
        : board_(board), place_(place), session_(session), owners_(owners), dice_(seed) {}

    void Singles() {
        while (Take(Kind::kSingle, board_.singlesLeft)) {
            Note(Single(), board_.results);
        }
    }

    void Groups() {
        while (Take(Kind::kGroup, board_.groupsLeft)) {
            Note(Group(), board_.records);
        }
    }

private:
    bool Take(Kind kind, std::atomic<int64_t>& left) {
        place_.open = kind;
        begin_ = std::chrono::steady_clock::now();
        const bool taken = left.fetch_sub(1) > 0;
        if (!taken) {
            left.fetch_add(1);
            place_.open = Kind::kNone;
        }
        return taken;
    }

    void Note(const std::optional<Error>& error, std::atomic<uint64_t>& good) {
        ++(error ? board_.errors.at(static_cast<size_t>(error->code)) : good);
        const auto took =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin_);
        const auto ms = static_cast<uint64_t>(took.count());
        for (uint64_t longest = board_.longestMs;
             ms > longest && !board_.longestMs.compare_exchange_weak(longest, ms);) {
        }
        place_.open = Kind::kNone;
        if (error) {
            std::printf("%s\n", error->text.c_str());
            std::fflush(stdout);
        }
    }

    std::optional<Error> Single() {
        const size_t owner = dice_.Below(owners_);
        if (dice_.Percent(15)) {
            auto reply = session_.Run({ItemOf(owner, "sync"), "run"}, Limit(kLimit));
            return reply ? std::nullopt : std::optional(reply.Failure());
        }
        ominspect::client::RunOptions options;
        options.join = dice_.Percent(75);
        auto outcome = RunItem(session_, {ItemOf(owner, AnyKind()), "run"}, options, Limit(kLimit));
        return outcome ? std::nullopt : std::optional(outcome.Failure());
    }

    std::optional<Error> Group() {
        std::vector<Request> requests;
        for (size_t i = 1 + dice_.Below(8); i > 0; --i) {
            requests.push_back({ItemOf(dice_.Below(owners_), AnyKind()), "run"});
        }
        if (dice_.Percent(50)) {
            requests.push_back({kOtherGroup, "run"});
        }
        ominspect::client::GroupOptions options;
        options.waitForTurn = true;
        return RunGroup(session_, requests, options, Limit(kLimit));
    }

    const char* AnyKind() {
        if (dice_.Percent(5)) {
            return "late";
        }
        if (dice_.Percent(15)) {
            return "slow";
        }
        return dice_.Percent(50) ? "ok" : "also_ok";
    }

    Board& board_;
    Place& place_;
    Session& session_;
    size_t owners_;
    Dice dice_;
    std::chrono::steady_clock::time_point begin_;
};

}  // namespace

int RunClient(Board& board, size_t place, size_t owners, bool groups, uint64_t seed) {
    auto session = Session::Open();
    if (!session) {
        std::printf("%s\n", session.Failure().text.c_str());
        return kFailed;
    }
    Client client(board, board.places.at(place), **session, owners, seed);
    if (groups) {
        client.Groups();
    } else {
        client.Singles();
    }
    return kWell;
}

}  // namespace soak
