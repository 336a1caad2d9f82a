// Signal sets and the calling thread's mask.
#include "kivo/os_signal.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>

static_assert(sizeof(OsSigSet) == sizeof(sigset_t), "a platform set has room for a system set");

namespace {

// The two are different types to the compiler, so sets are carried over by their bytes.
void Export(const sigset_t& from, OsSigSet& to) {
    std::memcpy(&to, &from, sizeof to);
}

sigset_t Import(const OsSigSet& from) {
    sigset_t to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}

// -1 for an unknown value.
int SystemHow(uint32_t how) {
    switch (how) {
        case OS_SIG_BLOCK:
            return SIG_BLOCK;
        case OS_SIG_UNBLOCK:
            return SIG_UNBLOCK;
        case OS_SIG_SETMASK:
            return SIG_SETMASK;
        default:
            return -1;
    }
}

}  // namespace

uint32_t OsSigEmptySet(struct OsSigSet* set) {
    if (set == nullptr) {
        return EINVAL;
    }
    sigset_t empty{};
    sigemptyset(&empty);
    Export(empty, *set);
    return 0;
}

uint32_t OsSigAddSet(struct OsSigSet* set, uint32_t signal) {
    if (set == nullptr || signal > INT_MAX) {
        return EINVAL;
    }
    sigset_t changed = Import(*set);
    if (sigaddset(&changed, static_cast<int>(signal)) != 0) {
        return static_cast<uint32_t>(errno);
    }
    Export(changed, *set);
    return 0;
}

uint32_t OsPthreadSigmask(uint32_t how, const struct OsSigSet* set, struct OsSigSet* oldSet) {
    const int systemHow = SystemHow(how);
    if (set == nullptr || systemHow < 0) {
        return EINVAL;
    }
    const sigset_t wished = Import(*set);
    sigset_t former{};  // the system fills in only the words it uses
    const int error = pthread_sigmask(systemHow, &wished, &former);
    if (error == 0 && oldSet != nullptr) {
        Export(former, *oldSet);
    }
    return static_cast<uint32_t>(error);
}
