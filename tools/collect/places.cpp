// The same mapping as in the service's unit.
#include "places.h"

#include <unistd.h>

namespace ominspect::collect {

Places ThePlaces() {
    constexpr const char* kDeviceConfig = "/zq_product/etc/config/om/inspect_config.xml";
    constexpr const char* kInstalledConfig = OMINSPECT_CONFIG_DIR "/inspect_config.xml";
    if (access(kDeviceConfig, F_OK) != 0 && access(kInstalledConfig, F_OK) == 0) {
        return {kInstalledConfig, OMINSPECT_STATE_DIR "/diag/log", false};
    }
    return {kDeviceConfig, kDeviceArea, true};
}

}  // namespace ominspect::collect
