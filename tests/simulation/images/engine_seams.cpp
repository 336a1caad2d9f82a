// Where the engine client of the reference platform asks the message layer for more than os_msg.h has: the simulator
// answers.
#include <map>
#include <string>

#include "engine_client/items_property.h"
#include "images/shown_items.h"
#include "kivo/os_msg.h"

namespace kivo::msg {

std::string ConnectionOf(const std::string& procName) {
    char connection[32] = {};
    SimConnectionOf(procName.c_str(), connection, sizeof connection);
    return connection;
}

void AwaitPassedOn() {
    SimAwaitPassedOn();
}

}  // namespace kivo::msg

namespace kivo::engine {

uint32_t PublishItems() {
    return OS_MSG_OK;
}

void SetItems(std::map<std::string, ShownItem> items) {  // NOLINT(performance-unnecessary-value-param): as declared
    SimHideItems();
    for (const auto& [name, item] : items) {
        SimShowItem(name.c_str(), item.timeout, item.server.c_str());
    }
}

}  // namespace kivo::engine
