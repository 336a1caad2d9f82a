// Names and texts that the actors use.
#pragma once

#include <cstddef>
#include <string>

namespace sim {

constexpr size_t kItems = 6;

/// An item that owners register.
const char* OwnedItem(size_t number);

/// The name of any item, rarely of one that nobody owns, or an odd one.
std::string PickItem();

/// A request for an item: JSON, rarely something like it.
std::string RequestText(const std::string& item, const std::string& cmd);
std::string PickRequest();

/// What a request asks for: mostly a run.
std::string PickCommand();

}  // namespace sim
