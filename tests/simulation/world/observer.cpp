// Only the server's processes are observed.
#include "world/observer.h"

namespace sim {

Observer* TheObserver() {
    Thread* const me = Self();
    return me == nullptr ? nullptr : me->process->observer;
}

void TellThreadEnd(Thread& thread) {
    if (thread.process->observer != nullptr) {
        thread.process->observer->OnThreadEnd(thread);
    }
}

}  // namespace sim
