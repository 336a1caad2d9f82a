// The items of a process as a property on the bus, so that others can list them.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace kivo::engine {

inline constexpr const char* kItemsPath = "/com/kivo/inspect";
inline constexpr const char* kItemsInterface = "com.kivo.Inspect.Owner";
inline constexpr const char* kItemsProperty = "Items";
inline constexpr const char* kItemsType = "a(su)";

// Puts the property on the bus. A result code of os_msg.h.
uint32_t PublishItems();

// Sets it to these names with their time limits in ms, and tells that it has changed. Names that are no UTF-8 cannot
// stand in it and are left out.
void SetItems(std::map<std::string, uint32_t> items);

}  // namespace kivo::engine
