// The items of a process as a property on the bus, so that others can list them.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace kivo::engine {

inline constexpr const char* kItemsPath = "/com/kivo/inspect";
inline constexpr const char* kItemsInterface = "com.kivo.Inspect.Owner";
inline constexpr const char* kItemsProperty = "Items";
inline constexpr const char* kItemsType = "a(sus)";

// An item as others see it.
struct ShownItem {
    uint32_t timeout;    // in ms
    std::string server;  // the connection of the server with which it is registered; empty: with none
};

// Puts the property on the bus. A result code of os_msg.h.
uint32_t PublishItems();

// Sets it to these items, by name, and tells that it has changed. Names that are no UTF-8 cannot stand in it and are
// left out.
void SetItems(std::map<std::string, ShownItem> items);

}  // namespace kivo::engine
