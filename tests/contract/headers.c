// The public headers in one C11 file, and the layout of every record in them.
#include <stddef.h>
#include <stdint.h>

#include "kivo/om_inspect_engine_client.h"
#include "kivo/om_log_client.h"
#include "kivo/os_bounds.h"
#include "kivo/os_file.h"
#include "kivo/os_lock.h"
#include "kivo/os_mem.h"
#include "kivo/os_monitor.h"
#include "kivo/os_msg.h"
#include "kivo/os_signal.h"
#include "kivo/os_thread.h"
#include "kivo/os_time.h"
#include "kivo/os_timer.h"
#include "ominspect/entry.h"
#include "ominspect/messages.h"
#include "ominspect/perfdata.h"
#include "ominspect/records.h"

// Addresses have 8 bytes, or 4.
#define ADDRESS sizeof(void*)

#define SIZE(type, bytes) _Static_assert(sizeof(type) == (bytes), "size of " #type)
#define FIELD(type, field, offset, bytes)                                                \
    _Static_assert(offsetof(type, field) == (offset), "offset of " #field " in " #type); \
    _Static_assert(sizeof(((type*)0)->field) == (bytes), "size of " #field " in " #type)

// ---- wire records ----

SIZE(struct tagKivoOmInspectionResult, 192);
FIELD(struct tagKivoOmInspectionResult, name, 0, 32);
FIELD(struct tagKivoOmInspectionResult, status, 32, 32);
FIELD(struct tagKivoOmInspectionResult, text, 64, 128);

SIZE(struct tagKivoOmInspectionDataItem, 208);
FIELD(struct tagKivoOmInspectionDataItem, result, 0, 192);
FIELD(struct tagKivoOmInspectionDataItem, startTime, 192, 8);
FIELD(struct tagKivoOmInspectionDataItem, endTime, 200, 8);

SIZE(struct OmInspectPerfHead, 40);
FIELD(struct OmInspectPerfHead, item, 0, 32);
FIELD(struct OmInspectPerfHead, count, 32, 4);
FIELD(struct OmInspectPerfHead, reserved, 36, 4);

SIZE(struct OmInspectPerfValue, 168);
FIELD(struct OmInspectPerfValue, label, 0, 64);
FIELD(struct OmInspectPerfValue, unit, 64, 16);
FIELD(struct OmInspectPerfValue, warn, 80, 32);
FIELD(struct OmInspectPerfValue, crit, 112, 32);
FIELD(struct OmInspectPerfValue, value, 144, 8);
FIELD(struct OmInspectPerfValue, min, 152, 8);
FIELD(struct OmInspectPerfValue, max, 160, 8);

SIZE(struct tagKivoOmInspectionGroupResult, 6688);
FIELD(struct tagKivoOmInspectionGroupResult, taskId, 0, 4);
FIELD(struct tagKivoOmInspectionGroupResult, reserved0, 4, 20);
FIELD(struct tagKivoOmInspectionGroupResult, count, 24, 4);
FIELD(struct tagKivoOmInspectionGroupResult, reserved1, 28, 4);
FIELD(struct tagKivoOmInspectionGroupResult, items, 32, 6656);

SIZE(struct tagKivoOmInspectionItem, 48);
FIELD(struct tagKivoOmInspectionItem, name, 0, 32);
FIELD(struct tagKivoOmInspectionItem, level, 32, 8);
FIELD(struct tagKivoOmInspectionItem, featureBits, 40, 8);

SIZE(struct tagKivoOmInspectionItemList, 12296);
FIELD(struct tagKivoOmInspectionItemList, items, 0, 12288);
FIELD(struct tagKivoOmInspectionItemList, count, 12288, 4);
FIELD(struct tagKivoOmInspectionItemList, reserved, 12292, 4);

SIZE(struct tagKivoOmInspectionRunHead, 36);
FIELD(struct tagKivoOmInspectionRunHead, name, 0, 32);
FIELD(struct tagKivoOmInspectionRunHead, len, 32, 4);

_Static_assert(OM_INSPECT_MSG_RUN == 0, "message id");
_Static_assert(OM_INSPECT_MSG_RUN_GROUP == 1, "message id");
_Static_assert(OM_INSPECT_MSG_REGISTER == 2, "message id");
_Static_assert(OM_INSPECT_MSG_UNREGISTER == 3, "message id");
_Static_assert(OM_INSPECT_MSG_OWNER_RUN == 4, "message id");
_Static_assert(OM_INSPECT_MSG_REPORT == 5, "message id");
_Static_assert(OM_INSPECT_MSG_STOP_GROUP == 6, "message id");
_Static_assert(OM_INSPECT_MSG_STATE == 7, "message id");
_Static_assert(OM_INSPECT_MSG_START == 18, "message id");
_Static_assert(OM_INSPECT_MSG_START_GROUP == 19, "message id");
_Static_assert(OM_INSPECT_MSG_LIST_COUNT == 37, "message id");
_Static_assert(OM_INSPECT_MSG_LIST == 38, "message id");
_Static_assert(OM_INSPECT_EVENT_RUN == 8, "event id");
_Static_assert(OM_INSPECT_EVENT_BUSY == 9, "event id");
_Static_assert(sizeof(OM_INSPECT_PROC_NAME) == sizeof("ominspect"), "process name");
_Static_assert(sizeof(OM_INSPECT_TASK_NAME) == sizeof("iom_srv_task"), "task name");

// ---- messages ----

SIZE(struct TagMsgBlock, 160 + ADDRESS);
FIELD(struct TagMsgBlock, msgType, 0, 4);
FIELD(struct TagMsgBlock, uid, 4, 4);
FIELD(struct TagMsgBlock, reserved0, 8, 4);
FIELD(struct TagMsgBlock, reserved1, 12, 4);
FIELD(struct TagMsgBlock, srcProcName, 16, 16);
FIELD(struct TagMsgBlock, srcTaskName, 32, 16);
FIELD(struct TagMsgBlock, msgId, 48, 4);
FIELD(struct TagMsgBlock, reserved2, 52, 4);
FIELD(struct TagMsgBlock, dstProcName, 56, 16);
FIELD(struct TagMsgBlock, dstTaskName, 72, 16);
FIELD(struct TagMsgBlock, reserved3, 88, 4);
FIELD(struct TagMsgBlock, param, 92, 4);
FIELD(struct TagMsgBlock, reserved4, 96, 44);
FIELD(struct TagMsgBlock, replyTaskName, 140, 16);
FIELD(struct TagMsgBlock, dataLen, 156, 4);
FIELD(struct TagMsgBlock, data, 160, ADDRESS);

SIZE(struct OsTaskDescriptor, 32 + 2 * ADDRESS);
FIELD(struct OsTaskDescriptor, name, 0, 24);
FIELD(struct OsTaskDescriptor, reserved, 24, 4);
FIELD(struct OsTaskDescriptor, queueDepth, 28, 4);
FIELD(struct OsTaskDescriptor, handler, 32, ADDRESS);
FIELD(struct OsTaskDescriptor, entry, 32 + ADDRESS, ADDRESS);

SIZE(struct OsMsgEvent, 24 + ADDRESS);
FIELD(struct OsMsgEvent, taskName, 0, 16);
FIELD(struct OsMsgEvent, eventId, 16, 4);
FIELD(struct OsMsgEvent, dataLen, 20, 4);
FIELD(struct OsMsgEvent, data, 24, ADDRESS);

SIZE(struct OsMsgSubscription, 56);
FIELD(struct OsMsgSubscription, eventId, 0, 4);
FIELD(struct OsMsgSubscription, reserved, 4, 4);
FIELD(struct OsMsgSubscription, srcProcName, 8, 16);
FIELD(struct OsMsgSubscription, srcTaskName, 24, 16);
FIELD(struct OsMsgSubscription, dstTaskName, 40, 16);

_Static_assert(OS_MSG_OK == 0, "result code");
_Static_assert(OS_MSG_EVENT_PROC_RESTART == 2097154, "event id of a process restart");

// ---- the other platform libraries ----

SIZE(struct InspectHandlerRecord, 32 + 2 * ADDRESS);
FIELD(struct InspectHandlerRecord, name, 0, 32);
FIELD(struct InspectHandlerRecord, handler, 32, ADDRESS);
FIELD(struct InspectHandlerRecord, timeout, 32 + ADDRESS, 4);

SIZE(struct KivoOmLogCreation, 76);
FIELD(struct KivoOmLogCreation, lineSize, 0, 4);
FIELD(struct KivoOmLogCreation, fileCount, 4, 4);
FIELD(struct KivoOmLogCreation, fileSize, 8, 4);
FIELD(struct KivoOmLogCreation, fileName, 12, 64);
SIZE(KivoOmLogHandle, 2);

SIZE(struct OsFileStat, 32);
FIELD(struct OsFileStat, size, 0, 8);
FIELD(struct OsFileStat, modifyTime, 8, 8);
FIELD(struct OsFileStat, detectTime, 16, 8);
FIELD(struct OsFileStat, mode, 24, 4);
FIELD(struct OsFileStat, linkCount, 28, 4);

SIZE(struct OsRwLock, ADDRESS);

SIZE(struct OsMemUsage, 16);
FIELD(struct OsMemUsage, bytes, 0, 8);
FIELD(struct OsMemUsage, blocks, 8, 8);

SIZE(struct OsMonitorProInfo, 20);
FIELD(struct OsMonitorProInfo, procName, 0, 16);
FIELD(struct OsMonitorProInfo, timeout, 16, 4);

SIZE(struct OsSigSet, 128);
FIELD(struct OsSigSet, words, 0, 128);

SIZE(struct OsTimerParam, 64 + ADDRESS);
FIELD(struct OsTimerParam, mode, 0, 4);
FIELD(struct OsTimerParam, reserved, 4, 44);
FIELD(struct OsTimerParam, userData, 48, 8);
FIELD(struct OsTimerParam, period, 56, 4);
FIELD(struct OsTimerParam, repeat, 60, 4);
FIELD(struct OsTimerParam, callback, 64, ADDRESS);
SIZE(OsTimerId, 4);
