// A message id that is not in this table is answered with an empty reply.
#include "handlers/handlers.h"
#include "inside/inside_inspection.h"
#include "ominspect/messages.h"
#include "server/dispatch.h"

// clang-format off
const std::array<DispatchRow, 18> kDispatchTable{{
    {OM_INSPECT_MSG_REGISTER,    Inspect::ASyncDealReg},            //    2: registers an item owned by the sender
    {OM_INSPECT_MSG_UNREGISTER,  Inspect::ASyncDealUnReg},          //    3: removes an item
    {OM_INSPECT_MSG_RUN,         Inspect::SyncDealSingle},          //    0: runs an item and replies with its result
    {OM_INSPECT_MSG_START,       Inspect::ASyncDealSingle},         //   18: starts an item; results are sent later
    {OM_INSPECT_MSG_REPORT,      Inspect::ASyncDealSendResult},     //    5: an owner reports a result
    {OM_INSPECT_MSG_RUN_GROUP,   Inspect::SyncDealGroup},           //    1: replies with an empty group record
    {OM_INSPECT_MSG_START_GROUP, Inspect::ASyncDealGroup},          //   19: starts a group, replies with its task id
    {OM_INSPECT_MSG_STOP_GROUP,  Inspect::SyncDealStopGroup},       //    6: stops a group by task id
    {OM_INSPECT_MSG_STATE,       Inspect::SyncDealGetState},        //    7: tells whether an item is idle
    {10,                         InspectSlaveProcess},              //   10: accepted and ignored, as the next four
    {11,                         InspectTransCreateFile},           //   11
    {12,                         InspectTransWriteFile},            //   12
    {13,                         InspectTransCloseFile},            //   13
    {1000,                       InspectSlaveReadVersion},          // 1000
    {OM_INSPECT_MSG_LIST_COUNT,  Inspect::GetGroupListLenHandle},   //   37: replies with the number of items
    {OM_INSPECT_MSG_LIST,        Inspect::GetGroupListHandle},      //   38: replies with the list of items
    {14,                         Inspect::SetInspectDotReportInfo}, //   14: accepted and ignored, as the next one
    {16,                         Inspect::NotifyInspectDotPackage}, //   16
}};
// clang-format on
