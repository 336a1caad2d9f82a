// The same mapping as in the service's unit.
#include "places.h"

#include <cstdlib>
#include <string>

#include <unistd.h>

namespace ominspect::collect {

namespace {

std::string LogFolder(const char* otherwise) {
    const char* chosen = std::getenv("KIVO_LOG_DIR");
    return chosen != nullptr && *chosen != '\0' ? chosen : otherwise;
}

}  // namespace

Places ThePlaces() {
    constexpr const char* kDeviceConfig = "/zq_product/etc/config/om/inspect_config.xml";
    // An installation without its file runs with the built-in items.
    if (access(kDeviceConfig, F_OK) != 0 && access(OMINSPECT_CONFIG_DIR, F_OK) == 0) {
        return {OMINSPECT_CONFIG_DIR "/inspect_config.xml", OMINSPECT_STATE_DIR "/diag/log",
                LogFolder(OMINSPECT_LOG_DIR), false};
    }
    return {kDeviceConfig, kDeviceArea, LogFolder("/var/log/kivo"), true};
}

}  // namespace ominspect::collect
