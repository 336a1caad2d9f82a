/*
 * Message bus and task runner (libkivo_os_msg).
 *
 * A process joins the bus under one process name and runs tasks. A task has a bounded queue, a thread, an
 * entry function, and a handler that its message loop calls once per message. Messages are addressed by
 * process and task name; a synchronous one is answered by the receiving handler with OsMsgSynSendResp.
 *
 * Names are UTF-8 texts of 1 to 15 bytes. A payload is at most OS_MSG_MAX_PAYLOAD bytes.
 * Results are OS_MSG_OK or one of the OS_MSG_ERR codes. Every function may be called from any thread unless it
 * says otherwise. What the bus does not take at once waits to be sent, at most 16 MiB of it, each message counted with
 * 1 KiB beside its payload; whatever would be sent beyond that fails with OS_MSG_ERR_NO_MEMORY. On Linux the bus is
 * D-Bus (https://dbus.freedesktop.org/doc/dbus-specification.html); the mapping is written down in docs/wire-format.md.
 */
#ifndef KIVO_OS_MSG_H
#define KIVO_OS_MSG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define OS_MSG_MAX_PAYLOAD 1048576u /* bytes: 1 MiB */
#define OS_MSG_NAME_SIZE 16u

/* Result codes. */
#define OS_MSG_OK 0u
#define OS_MSG_ERR_PARAM 0x80020002u        /* a null pointer, an empty or overlong name, a bad record */
#define OS_MSG_ERR_NO_MEMORY 0x80020003u    /* memory, threads, descriptors or room for unsent data used up */
#define OS_MSG_ERR_NOT_ATTACHED 0x80020004u /* the process is not on the bus (yet, or any more) */
#define OS_MSG_ERR_ATTACHED 0x80020005u     /* the process is on the bus already */
#define OS_MSG_ERR_NAME_TAKEN 0x80020006u   /* another process, or another task of this one, has the name */
#define OS_MSG_ERR_NO_BUS 0x80020007u       /* the bus cannot be reached, or was lost */
#define OS_MSG_ERR_ABSENT 0x80020008u       /* the destination process is not there */
#define OS_MSG_ERR_NO_TASK 0x80020009u      /* the destination process has no such task */
#define OS_MSG_ERR_DIED 0x8002000au         /* the destination left the bus while it was asked */
#define OS_MSG_ERR_TIMEOUT 0x8002000bu      /* no reply within the given time */
#define OS_MSG_ERR_QUEUE_FULL 0x8002000cu   /* the destination task's queue is full */
#define OS_MSG_ERR_TOO_LARGE 0x8002000du    /* the payload is larger than OS_MSG_MAX_PAYLOAD */
#define OS_MSG_ERR_DENIED 0x8002000eu       /* the bus's policy forbids the message, or the process name */
#define OS_MSG_ERR_NO_REQUEST 0x8002000fu   /* nobody waits for this reply: not synchronous, answered, or gone */
#define OS_MSG_ERR_BUS 0x80020010u          /* the bus answered with any other error */

/* The event id of a process restart (OsMsgSubscribeEvent). */
#define OS_MSG_EVENT_PROC_RESTART 0x200002u

/*
 * Message envelope, 168 bytes, native byte order.
 *
 * Outgoing: the caller fills msgId, the two destination names, param, dataLen and data, and replyTaskName
 * if answers are to go to another task than the sending thread's own; the rest is ignored. The payload is
 * copied during the call.
 * Incoming: everything is filled. `uid`, and the process name, are those the bus vouches for (UINT32_MAX and
 * the empty text where it knows none), never what the sender says. The message layer owns envelope and payload;
 * both are valid until the handler returns.
 */
struct TagMsgBlock {
    uint32_t msgType;                     /*   0: 1 = synchronous: the sender waits for a reply */
    uint32_t uid;                         /*   4: user id of the sending process */
    uint32_t reserved0;                   /*   8 */
    uint32_t reserved1;                   /*  12 */
    char srcProcName[OS_MSG_NAME_SIZE];   /*  16 */
    char srcTaskName[OS_MSG_NAME_SIZE];   /*  32 */
    uint32_t msgId;                       /*  48 */
    uint32_t reserved2;                   /*  52 */
    char dstProcName[OS_MSG_NAME_SIZE];   /*  56 */
    char dstTaskName[OS_MSG_NAME_SIZE];   /*  72 */
    uint32_t reserved3;                   /*  88 */
    uint32_t param;                       /*  92: one parameter word, its meaning is the message id's */
    unsigned char reserved4[44];          /*  96: the message layer's own: names the reply that is owed */
    char replyTaskName[OS_MSG_NAME_SIZE]; /* 140: the task to which later answers to the sender are addressed */
    uint32_t dataLen;                     /* 156: bytes of payload */
    unsigned char* data;                  /* 160: payload, or null */
};

/* Handles one message of a task; runs on the thread that runs the task's message loop. The result is logged
 * when it is not 0, and has no other effect. */
typedef uint32_t (*OsTaskHandler)(struct TagMsgBlock* msg);

/* A task's entry; runs on the task's own thread and normally ends in OsMsgTaskRoutineByName. */
typedef uint32_t (*OsTaskEntry)(void);

/* 48 bytes; copied. */
struct OsTaskDescriptor {
    char name[24];         /*  0: NUL-padded, at most 15 bytes */
    uint32_t reserved;     /* 24: 0 */
    uint32_t queueDepth;   /* 28: messages that may wait, at least 1 */
    OsTaskHandler handler; /* 32 */
    OsTaskEntry entry;     /* 40: null: the thread just runs the message loop */
};

/* Broadcast event, 32 bytes; everything is copied. */
struct OsMsgEvent {
    char taskName[OS_MSG_NAME_SIZE]; /*  0: the sending task, one of this process */
    uint32_t eventId;                /* 16 */
    uint32_t dataLen;                /* 20 */
    const void* data;                /* 24 */
};

/* An event that a task wants to receive, 56 bytes; copied. */
struct OsMsgSubscription {
    uint32_t eventId;                   /*  0 */
    uint32_t reserved;                  /*  4: 0 */
    char srcProcName[OS_MSG_NAME_SIZE]; /*  8: whose event */
    char srcTaskName[OS_MSG_NAME_SIZE]; /* 24: which of its tasks sends it; ignored for a restart */
    char dstTaskName[OS_MSG_NAME_SIZE]; /* 40: the task of this process that receives it */
};

/* ---- process and tasks ---- */

/* Joins the bus as `procName` without running a task. The bus is the one at KIVO_BUS_ADDRESS, else the system
 * bus. ATTACHED, NAME_TAKEN, NO_BUS, DENIED, PARAM, NO_MEMORY. */
uint32_t OsProcAttach(const char* procName);

/* Leaves the bus: waiting calls fail with NOT_ATTACHED, message loops return, task threads are joined; unread
 * messages are dropped, and what the bus does not take within two seconds is not sent. Not to be called from a task's
 * own thread (use OsProcRequestDetach there). */
void OsProcDetach(void);

/* Asks for the same without waiting: message loops return after their current message, OsTaskRun returns. The only
 * function here that a signal handler may call. */
void OsProcRequestDetach(void);

/* Creates one task of the attached process, its thread included. The queue takes messages from now on.
 * The last eighth of a queue of eight or more is kept for senders of which nothing waits in it. NAME_TAKEN, PARAM,
 * NOT_ATTACHED, NO_MEMORY. */
uint32_t OsTaskCreate(const struct OsTaskDescriptor* task);

/* Attaches as `procName`, creates `count` tasks, waits until all have ended, and detaches. All queues take
 * messages before the name is on the bus. Returns the first failure, NO_BUS if the bus went away, else OK. */
uint32_t OsTaskRun(const char* procName, const struct OsTaskDescriptor* tasks, uint32_t count);

/* Runs the message loop of a task of this process on the calling thread; one thread per task (another gets NAME_TAKEN).
 * Returns OK once the process detaches, NO_BUS when the bus went away, NOT_ATTACHED before the process joined, NO_TASK
 * when this process has no task of that name. */
uint32_t OsMsgTaskRoutineByName(const char* taskName);

/* ---- messages ---- */

/* Sends and waits at most `timeoutMs` milliseconds for the reply, which goes to *resp: an envelope whose data and
 * dataLen are the reply's payload (null and 0 for an empty one). The caller owns it and frees it with OsMsgSynRespFree.
 * Fails at once when the destination is absent, dies, has no such task or a full queue; *resp is null on failure. Any
 * number of threads may wait at the same time. A limit of 0 sends without waiting. A thread that runs no task sends
 * under the empty source task name. */
uint32_t OsMsgSynSend(const struct TagMsgBlock* msg, struct TagMsgBlock** resp, uint32_t timeoutMs);

/* Frees a reply; null is ignored. */
void OsMsgSynRespFree(struct TagMsgBlock* resp);

/* Sends without waiting. OK means that the bus took it; an absent destination goes unnoticed. */
uint32_t OsMsgAsynSend(const struct TagMsgBlock* msg);

/* Answers a synchronous message; the payload (null and 0 for an empty reply) is copied. While the handler runs, any
 * thread may call it with the message or with a copy of its envelope. A second answer to the same message is
 * NO_REQUEST, as is one to a sender that has left. After PARAM and TOO_LARGE the reply is still owed. */
uint32_t OsMsgSynSendResp(const struct TagMsgBlock* msg, const void* data, uint32_t dataLen);

/* Keeps the owed reply open after the handler returns, for an answer from elsewhere with a copy of the
 * envelope. Without this call a message that its handler did not answer is forgotten when it returns; its
 * sender waits for its own time limit. Kept until answered or until the sender leaves; at most 1024 per
 * process, beyond that NO_MEMORY. NO_REQUEST: nothing is owed. Only from the handler. */
uint32_t OsMsgSynDeferResp(const struct TagMsgBlock* msg);

/* ---- events ---- */

/* Sends an event to all who subscribed to it; nothing is sent while nobody has. `scope` must be 1: the whole device.
 * An event with the id of a process restart is never treated as one. NO_TASK: this process has no such task. */
uint32_t OsMsgBroadcastEvent(const struct OsMsgEvent* event, uint32_t scope);

/* Subscribes a task to `count` events, each delivered to its queue as an asynchronous message whose id is the
 * event id and whose source names are the sender's. Event OS_MSG_EVENT_PROC_RESTART is made by the platform
 * itself each time the process `srcProcName` appears on the bus after the subscription. `flags` must be 0.
 * The source may start later or anew: its events come again. When it is there, this waits until it knows its
 * subscriber, two seconds at most for each source. */
uint32_t OsMsgSubscribeEvent(const struct OsMsgSubscription* subscriptions, uint32_t count, uint32_t flags);

/* ---- diagnosis ---- */

/* Lines of the message layer with a level above `level` are left out: 0 none, 1 errors, 2 warnings, 3
 * information. The default is 2. */
void OsMsgSetLogLevel(uint32_t level);

/* Where the message layer's own lines go; null goes back to standard error. `log` gets one line without line
 * end; it may be called from any thread and must not call back into this library. */
void OsMsgRegLogFunc(void (*log)(const char* text));

/* How many messages a task of this process lost because its queue was full or there was no memory; 0 for an unknown
 * task. A synchronous one is not lost: its sender gets an error. */
uint64_t OsMsgDroppedCount(const char* taskName);

/* The address at which this process looks for the bus; never null. Valid until the environment changes. */
const char* OsMsgBusAddress(void);

/* What stood in the way when the calling thread's last OsProcAttach or OsTaskRun could not join the bus, as a short
 * English text; empty when there is nothing to add to the result code. Valid until its next such call. */
const char* OsMsgJoinFailure(void);

/* What the process shows on the bus as its version, from its next joining on; copied. Null or empty: none, which is the
 * default. For people who look; a platform may do nothing. */
void OsProcSetVersion(const char* version);

/* A short English text for a result code; never null. */
const char* OsMsgResultText(uint32_t result);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
