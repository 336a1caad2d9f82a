// A product's own definition of the hook that switches the system-log backup on.
#include "ominspect/collect.h"

bool InspectIsNeedBackupWylog() {
    return true;
}
