// The connectors as libdrm tells them. The kernel's last look is taken: a new one could stop the picture for a moment.
#include <fcntl.h>
#include <xf86drm.h>
#include <xf86drmMode.h>

#include <array>

#include "common/fd.h"
#include "media/display_probe.h"

namespace room {
namespace {

template <typename Type, void (*free)(Type*)>
struct Free {
    void operator()(Type* object) const { free(object); }
};
template <typename Type, void (*free)(Type*)>
using Owned = std::unique_ptr<Type, Free<Type, free>>;

// What the connector's controller sends; empty for nothing.
std::string ModeOf(int card, const drmModeConnector& connector) {
    const Owned<drmModeEncoder, drmModeFreeEncoder> encoder(drmModeGetEncoder(card, connector.encoder_id));
    if (!encoder) {
        return {};
    }
    const Owned<drmModeCrtc, drmModeFreeCrtc> controller(drmModeGetCrtc(card, encoder->crtc_id));
    if (!controller || controller->mode_valid == 0) {
        return {};
    }
    return std::to_string(controller->mode.hdisplay) + 'x' + std::to_string(controller->mode.vdisplay) + '@' +
           std::to_string(controller->mode.vrefresh);
}

void AddConnectors(int card, std::vector<Connector>& connectors) {
    const Owned<drmModeRes, drmModeFreeResources> resources(drmModeGetResources(card));
    for (int at = 0; resources && at < resources->count_connectors; ++at) {
        const Owned<drmModeConnector, drmModeFreeConnector> connector(
            drmModeGetConnectorCurrent(card, resources->connectors[at]));
        if (!connector || connector->connector_type == DRM_MODE_CONNECTOR_WRITEBACK) {
            continue;
        }
        const char* type = drmModeGetConnectorTypeName(connector->connector_type);
        const bool isConnected = connector->connection == DRM_MODE_CONNECTED;
        connectors.push_back(
            {std::string(type == nullptr ? "Unknown" : type) + '-' + std::to_string(connector->connector_type_id),
             isConnected, isConnected ? ModeOf(card, *connector) : std::string()});
    }
}

class System : public DisplayProbe {
public:
    ominspect::Result<std::vector<Connector>> Connectors() override {
        constexpr int kMost = 16;
        std::array<drmDevicePtr, kMost> devices{};
        const int count = drmGetDevices2(0, devices.data(), kMost);
        std::vector<Connector> connectors;
        int refusal = 0;
        for (int at = 0; at < count; ++at) {
            drmDevice& device = *devices[static_cast<std::size_t>(at)];
            if ((static_cast<unsigned>(device.available_nodes) & 1U << DRM_NODE_PRIMARY) == 0) {
                continue;
            }
            const ominspect::UniqueFd card(open(device.nodes[DRM_NODE_PRIMARY], O_RDWR | O_CLOEXEC | O_NONBLOCK));
            if (card) {
                AddConnectors(card.Get(), connectors);
            } else {
                refusal = errno;
            }
        }
        if (count > 0) {
            drmFreeDevices(devices.data(), count);
        }
        if (connectors.empty() && refusal != 0) {
            return ominspect::SystemError(refusal);
        }
        return connectors;
    }
};

}  // namespace

std::unique_ptr<DisplayProbe> SystemDisplays() {
    return std::make_unique<System>();
}

}  // namespace room
