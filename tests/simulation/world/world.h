// A life of a device: the server with its owners and requesters, and what goes wrong.
#pragma once

#include "world/image.h"

namespace sim {

struct WorldImages {
    Images& server;
    Images& owner;
    Images& requester;
};

/// Lives one life, as the choices say. Returns when the world has come to rest and all is as it must be.
void Live(WorldImages images);

}  // namespace sim
