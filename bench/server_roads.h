// What the server does, without the bus: on the fake platform, where a scripted owner answers every run.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// Something the server does, in batches: before, `batch` times pass(0), pass(1) and so on, after. Passes are what
/// counts; the rest makes them possible again and again.
struct Road {
    std::string name;
    std::size_t batch = 64;
    std::function<void()> before = [] {};
    std::function<void(std::size_t)> pass;
    std::function<void()> after = [] {};
};

/// Brings the server up with so many items. There is one server: the items of an earlier call are gone.
void StartServer(std::size_t items);

/// The dispatch of each message id of the server, in the order of the ids. A message for an item means one of the
/// middle. Needs a server.
std::vector<Road> MessageRoads();

/// Operations of the result table, on its items in turn. Needs a server of `items` items.
std::vector<Road> TableRoads(std::size_t items);

/// The reading of request texts.
std::vector<Road> JsonRoads();

/// Calls of the fake platform alone: what it adds to the dispatch of a message.
std::vector<Road> PlatformRoads();

}  // namespace bench
