// The default definitions of the hooks that a product may replace. They are called through the dynamic symbol, so a
// definition in another loaded module wins.
#include "ominspect/collect.h"

int InspectCollectVendorLog() {
    return 0;
}

bool InspectIsNeedBackupWylog() {
    return false;
}
