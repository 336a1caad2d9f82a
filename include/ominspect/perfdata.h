/*
 * What a check has measured, as the owner of its item tells it: an event of the owner's own, beside the result that
 * goes to the server, which has no part in it. ominspect-owner makes it of the performance data of monitoring plugins.
 *
 * The owner broadcasts it from its task OM_INSPECT_PERFDATA_TASK, before it answers or reports the run. It replaces
 * what was told of the item before; without values it says that the last run measured nothing.
 */
#ifndef OMINSPECT_PERFDATA_H
#define OMINSPECT_PERFDATA_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define OM_INSPECT_PERFDATA_TASK "owner_items"
#define OM_INSPECT_EVENT_PERFDATA 0x300001u /* OmInspectPerfHead, and its values right behind it */

#define OM_INSPECT_PERF_ITEM_SIZE 32u
#define OM_INSPECT_PERF_LABEL_SIZE 64u
#define OM_INSPECT_PERF_UNIT_SIZE 16u
#define OM_INSPECT_PERF_RANGE_SIZE 32u
#define OM_INSPECT_PERF_SLOTS 64u /* values of one event at most */

/* 40 bytes. */
struct OmInspectPerfHead {
    char item[OM_INSPECT_PERF_ITEM_SIZE]; /*  0: item name */
    uint32_t count;                       /* 32: values that follow */
    uint32_t reserved;                    /* 36: zero */
};

/* One value, 168 bytes. Texts end within their fields. */
struct OmInspectPerfValue {
    char label[OM_INSPECT_PERF_LABEL_SIZE]; /*   0: never empty */
    char unit[OM_INSPECT_PERF_UNIT_SIZE];   /*  64: "s", "ms", "us", "%", "B", "KB", "MB", "GB", "TB", "c" for what only
                                                    rises, another one, or empty */
    char warn[OM_INSPECT_PERF_RANGE_SIZE];  /*  80: a range of the convention, such as "10" or "@5:10", or empty */
    char crit[OM_INSPECT_PERF_RANGE_SIZE];  /* 112: the same */
    double value;                           /* 144: IEEE 754, finite */
    double min;                             /* 152: the least that it can be; NaN: not told */
    double max;                             /* 160: the most; NaN: not told */
};

#ifdef __cplusplus
}
#endif

#endif
