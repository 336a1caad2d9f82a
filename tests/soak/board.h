// What the processes of a soak tell each other: counts in memory that they share, which outlive whoever is killed.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace soak {

enum class Kind : uint32_t { kNone, kSingle, kGroup };

// One place of a client; a client that is killed leaves it to the next.
struct Place {
    std::atomic<Kind> open;  // the request that is under way
};

constexpr size_t kMostClients = 200;
constexpr size_t kErrorCodes = 16;

struct Board {
    std::atomic<int64_t> singlesLeft;
    std::atomic<int64_t> groupsLeft;
    std::atomic<uint64_t> results;                          // of single runs
    std::atomic<uint64_t> records;                          // of groups
    std::array<std::atomic<uint64_t>, kErrorCodes> errors;  // by ominspect::client::ErrorCode
    std::atomic<uint64_t> longestMs;                        // from a request to its result or error
    std::array<Place, kMostClients> places;
};

// Makes the board in a file, or joins the one that is there. Throws std::runtime_error.
Board& MakeBoard(const std::string& path);
Board& JoinBoard(const std::string& path);

}  // namespace soak
