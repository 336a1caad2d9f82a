/*
 * Wire records of the inspection system: what travels in the payloads of its messages.
 *
 * Plain records of fixed size in native little-endian byte order; texts are NUL-terminated character arrays.
 * Sizes and offsets (in bytes, beside each field) are the wire format and never change.
 */
#ifndef OMINSPECT_RECORDS_H
#define OMINSPECT_RECORDS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define OM_INSPECT_NAME_SIZE 32u
#define OM_INSPECT_STATUS_SIZE 32u
#define OM_INSPECT_TEXT_SIZE 128u
#define OM_INSPECT_GROUP_SLOTS 32u
#define OM_INSPECT_LIST_SLOTS 256u

/* One item's result, 192 bytes: payload of messages 0 and 5, and of event 8. */
struct tagKivoOmInspectionResult {
    char name[OM_INSPECT_NAME_SIZE];     /*   0: item name */
    char status[OM_INSPECT_STATUS_SIZE]; /*  32: "idle", "running", "success", "fail", the owner's own word, or empty
                                                 (the answer to "done") */
    char text[OM_INSPECT_TEXT_SIZE];     /*  64: result text */
};

/* A result with its times, 208 bytes: one slot of the group record. */
struct tagKivoOmInspectionDataItem {
    struct tagKivoOmInspectionResult result; /*   0 */
    uint64_t startTime;                      /* 192: system time in ms when the item was first started; 0 before */
    uint64_t endTime; /* 200: system time in ms when it ended, was stopped or timed out; 0 before */
};

/* Result of a group run, 6688 bytes: payload of message 1, and reply of a synchronous group request. */
struct tagKivoOmInspectionGroupResult {
    uint32_t taskId;                                                  /*  0: the job that ran the group */
    uint32_t reserved0[5];                                            /*  4: zero */
    uint32_t count;                                                   /* 24: items in the group, at most 32 */
    uint32_t reserved1;                                               /* 28: zero */
    struct tagKivoOmInspectionDataItem items[OM_INSPECT_GROUP_SLOTS]; /* 32: in the order of the request */
};

/* One configured item, 48 bytes. */
struct tagKivoOmInspectionItem {
    char name[OM_INSPECT_NAME_SIZE]; /*  0 */
    char level[8];                   /* 32: "error" or "warn" */
    int64_t featureBits;             /* 40: bit value 1: the item is synchronous */
};

/* The configured items, 12296 bytes: reply of message 38. */
struct tagKivoOmInspectionItemList {
    struct tagKivoOmInspectionItem items[OM_INSPECT_LIST_SLOTS]; /*     0 */
    uint32_t count;                                              /* 12288 */
    uint32_t reserved;                                           /* 12292: zero */
};

/* Head of the payload of message 4 (run request to an item's owner); `len` bytes and one NUL follow at offset 36.
 * The request text ends at its first NUL: `len` counts a NUL of the text's own, so that two NULs end the payload, but
 * not when the server stops the items of a group. */
struct tagKivoOmInspectionRunHead {
    char name[OM_INSPECT_NAME_SIZE]; /*  0: item name */
    uint32_t len;                    /* 32: bytes that follow, without the last NUL */
};

#ifdef __cplusplus
}
#endif

#endif
