// Signal mask and timer manager, set up before any task starts.
#include "server/start.h"

#include <initializer_list>

#include "kivo/os_signal.h"
#include "kivo/os_timer.h"
#include "server/log.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_server", 18};
constexpr uint32_t kSigChld = 17;
constexpr uint32_t kSigUsr1 = 10;

}  // namespace

uint32_t InitTimer() {
    OsSigSet set{};
    if (const uint32_t result = OsSigEmptySet(&set); result != 0) {
        INSPECT_ERROR("OsSigEmptySet fail:%d", static_cast<int>(result));
        return result;
    }
    for (const uint32_t signal : {kSigChld, kSigUsr1}) {
        if (const uint32_t result = OsSigAddSet(&set, signal); result != 0) {
            INSPECT_ERROR("OsSigAddSet fail:%d", static_cast<int>(result));
            return result;
        }
    }
    OsSigSet oldSet{};
    if (const uint32_t result = OsPthreadSigmask(OS_SIG_BLOCK, &set, &oldSet); result != 0) {
        INSPECT_ERROR("OsPthreadSigmask fail:%d", static_cast<int>(result));
        return result;
    }
    if (const uint32_t result = OsTmrManagerInit(1, 0, 0); result != 0) {
        INSPECT_ERROR("Init 10ms timer failed:%d", static_cast<int>(result));
        return result;
    }
    return 0;
}
