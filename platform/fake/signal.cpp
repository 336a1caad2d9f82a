// Signal masks (os_signal.h): the real ones of the calling thread.
#include <string>

#include "fake/real.h"

using namespace kivo::fake;

namespace {

// Records a call that did not fail.
uint32_t Recorded(uint32_t result, const std::string& text) {
    if (result == 0) {
        RecordCall(Hold(), text);
    }
    return result;
}

}  // namespace

uint32_t OsSigEmptySet(struct OsSigSet* set) {
    return Recorded(CallReal("OsSigEmptySet", real_OsSigEmptySet, set), "OsSigEmptySet");
}

uint32_t OsSigAddSet(struct OsSigSet* set, uint32_t signal) {
    return Recorded(CallReal("OsSigAddSet", real_OsSigAddSet, set, signal),
                    "OsSigAddSet(" + std::to_string(signal) + ")");
}

uint32_t OsPthreadSigmask(uint32_t how, const struct OsSigSet* set, struct OsSigSet* oldSet) {
    return Recorded(CallReal("OsPthreadSigmask", real_OsPthreadSigmask, how, set, oldSet),
                    "OsPthreadSigmask(" + std::to_string(how) + ")");
}
