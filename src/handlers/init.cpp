// Start of the request layer.
#include "handlers/init.h"

#include "handlers/group_catalogue.h"
#include "result/result_mgr.h"

void Inspect::Init() {
    g_resultMgr.Init();
    g_resultMgr.AddGroup(GetGroupList());
}
