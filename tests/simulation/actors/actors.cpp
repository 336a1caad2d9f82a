// What all actors share.
#include "actors/actors.h"

#include "world/choices.h"
#include "world/process.h"

namespace sim {

namespace {

Manners g_manners;
bool g_libraries = false;
bool g_retired = false;

}  // namespace

void UseManners(const Manners& manners) {
    g_manners = manners;
}

const Manners& TheManners() {
    return g_manners;
}

void LeaveItToLibraries() {
    g_libraries = true;
    g_manners.lies = false;
    g_manners.slow = false;
    g_manners.silent = false;
}

bool IsLeftToLibraries() {
    return g_libraries;
}

void Retire() {
    g_retired = true;
    Wake(&g_retired);
}

bool IsRetired() {
    return g_retired;
}

bool Rest() {
    const InPlatform platform;
    Point();
    if (g_retired) {
        return false;
    }
    const Micros pause = g_manners.pause * (1 + Pick(64)) / 64;
    (void)Wait("a pause", &g_retired, Now() + pause);
    return !g_retired && CurrentProcess().Attached();
}

}  // namespace sim
