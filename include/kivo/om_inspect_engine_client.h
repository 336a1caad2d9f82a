/*
 * Inspection-engine client (libkivo_om_inspect_engine_client): makes a process the owner of inspection items.
 *
 * Sequence: join the bus (OsTaskRun or OsProcAttach), InspectClientInit once, InspectRegHandler any number of
 * times. The library serves run requests on a task of its own, one after the other unless a handler defers its
 * answer, and registers the items again by itself whenever the inspection server restarts; items may be registered
 * before it runs.
 *
 * Results are 0 or a code of os_msg.h. Any thread may call; handlers run on the library's task thread.
 */
#ifndef KIVO_OM_INSPECT_ENGINE_CLIENT_H
#define KIVO_OM_INSPECT_ENGINE_CLIENT_H

#include <stddef.h>
#include <stdint.h>

#include "ominspect/records.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* Runs an item. `itemName` and `request` (the request's JSON text, NUL-terminated) are valid during the call.
 * `result` comes zeroed but for its name; the handler fills status and text. The status "running" says that
 * the result follows through InspectReportResult. A non-zero return answers "fail" with "run err". */
typedef uint32_t (*InspectItemHandler)(const char* itemName, const char* request,
                                       struct tagKivoOmInspectionResult* result);

/* Keeps the answer of the run that the calling handler serves open: it comes from any thread by InspectAnswerRun, and
 * the next request is served meanwhile. What the handler returns and leaves in its result is then not sent. `*run`
 * names the run; 0 is none. The requester's time limit goes on. NO_REQUEST: the thread serves no run, or has deferred
 * it already; NO_MEMORY: 1024 answers are open; PARAM: null. After a failure the handler answers as usual. */
uint32_t InspectDeferRun(uint64_t* run);

/* Answers a deferred run, once; any thread. PARAM: a result that is null or has a text without NUL: the answer is still
 * owed. NO_REQUEST: not open, or the requester has left. */
uint32_t InspectAnswerRun(uint64_t run, const struct tagKivoOmInspectionResult* result);

/* One item; copied. 48 bytes. */
struct InspectHandlerRecord {
    char name[OM_INSPECT_NAME_SIZE]; /*  0: NUL-padded, 1 to 31 bytes */
    InspectItemHandler handler;      /* 32 */
    uint32_t timeout;                /* 40: time limit in ms of a run that answered "running"; 0 = none */
};

/* Starts the client: creates the task `clientName` (1 to 15 bytes) in this process. ATTACHED: initialised
 * before; else as OsTaskCreate. */
uint32_t InspectClientInit(const char* clientName);

/* Registers `count` items. PARAM: no records, or a bad one; then none is registered. An item that this process
 * registered before gets the new handler and time limit. NOT_ATTACHED: not initialised. When it returns, the bus has
 * passed the registrations on: a server that runs gets them before anything that is sent afterwards. A process with
 * more than 200 items gets a thread, which registers them again and stays; NO_MEMORY: none is to be had, then no item
 * is registered, or there is no memory for one of them. */
uint32_t InspectRegHandler(const struct InspectHandlerRecord* records, uint32_t count);

/* Takes an item back. PARAM: not registered by this process. */
uint32_t InspectUnRegHandler(const char* itemName);

/* Reports the result of a run that was answered with "running" (or, with that status again, its progress). */
uint32_t InspectReportResult(const struct tagKivoOmInspectionResult* result);

/* An item that a process owns, 56 bytes. */
struct InspectOwnedItem {
    char name[OM_INSPECT_NAME_SIZE]; /*  0: empty: the process did not answer in time */
    char procName[16];               /* 32 */
    uint32_t timeout;                /* 48: as in InspectHandlerRecord */
    uint32_t registered;             /* 52: 1: with the inspection server that runs now; 0: not, or not yet again */
};

/* Gets one item, which is valid during the call; must not throw. */
typedef void (*InspectOwnedItemTaker)(const struct InspectOwnedItem* item, void* context);

/* Calls `take` on this thread for each item of each process on the bus that uses this library, within `timeoutMs`
 * milliseconds. An item that a process registered with a message of its own is not among them. The calling process need
 * not have joined the bus. PARAM: no `take`; NO_BUS, NO_MEMORY. */
uint32_t InspectForEachOwnedItem(InspectOwnedItemTaker take, void* context, uint32_t timeoutMs);

/* Copies the argument ("cmd") of a request's JSON text to `out`, which has `size` bytes. PARAM: the text is not JSON,
 * has no such string, or it does not fit with its NUL; `out` is then the empty text. */
uint32_t InspectGetArgument(const char* request, char* out, size_t size);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
