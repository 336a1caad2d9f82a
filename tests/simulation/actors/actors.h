// The processes around the server. Each lives until it is killed or loses the bus; the world then starts another one.
#pragma once

#include <cstdint>
#include <string>

#include "world/image.h"
#include "world/scheduler.h"

namespace sim {

/// How the actors of a run behave.
struct Manners {
    Micros pause = kSecond;    // between two deeds, at most
    bool lies = false;         // owners answer what they must not
    bool babbles = false;      // owners report what nobody asked for
    bool slow = false;         // owners take minutes
    bool silent = false;       // owners may never report, or never answer
    bool unregisters = false;  // owners take their items back
    bool floods = false;       // requesters send hundreds of messages at once
    bool dawdles = false;      // event functions take minutes
};

void UseManners(const Manners& manners);
const Manners& TheManners();

/// Owners register no item anew by themselves from now on: only their library does. Nobody keeps the server waiting.
void LeaveItToLibraries();
bool IsLeftToLibraries();

/// The actors begin nothing new from now on.
void Retire();
bool IsRetired();

/// Sleeps for a while, and tells whether to go on: the process is on the bus, and nobody retired.
bool Rest();

/// An owner that uses the engine client library.
void RunEngineOwner(const Image& image, const std::string& name, uint32_t number);

/// An owner, or what passes for one, that speaks os_msg.h itself.
void RunRawOwner(const std::string& name, uint32_t number);

/// A requester that speaks os_msg.h itself: any message, well formed or not.
void RunRawRequester(const std::string& name);

/// A requester that uses the client library.
void RunRequester(const Image& image, const std::string& name);

}  // namespace sim
