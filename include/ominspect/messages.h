/*
 * Addresses, message ids and events of the inspection server. docs/wire-format.md has a worked example.
 *
 * A request for one item is a JSON object text with the two string members "name" (the item, at most 31
 * bytes) and "cmd" (at most 127 bytes): "stop" stops the item, "done" resets it to "idle", anything else runs
 * it and is its argument.
 *
 * What the server sends later (messages 0, 1 and 4) goes to the reply task of the request or registration, else to the
 * task that sent it.
 */
#ifndef OMINSPECT_MESSAGES_H
#define OMINSPECT_MESSAGES_H

/* Where the server is on the bus. */
#define OM_INSPECT_PROC_NAME "ominspect"
#define OM_INSPECT_TASK_NAME "iom_srv_task"

enum OmInspectMsgId {
    /* Requests to the server. */
    OM_INSPECT_MSG_RUN = 0,          /* request text -> 192-byte result; from the server: a result */
    OM_INSPECT_MSG_RUN_GROUP = 1,    /* request texts -> empty group record; from the server: a group record */
    OM_INSPECT_MSG_REGISTER = 2,     /* item name, param = time limit in ms (0 none): the sender owns the item */
    OM_INSPECT_MSG_UNREGISTER = 3,   /* item name */
    OM_INSPECT_MSG_REPORT = 5,       /* 192-byte result, from the item's owner */
    OM_INSPECT_MSG_STOP_GROUP = 6,   /* param = task id -> u32: 0 recorded, 1 unknown */
    OM_INSPECT_MSG_STATE = 7,        /* item name -> u32: 0 not idle, 1 idle or unknown, 2 no name */
    OM_INSPECT_MSG_START = 18,       /* request text; results come as OM_INSPECT_MSG_RUN messages: of a run each
                                        "running" and the final one, of "stop" and "done" exactly one */
    OM_INSPECT_MSG_START_GROUP = 19, /* request texts -> u32: task id, or 14, or 16 */
    OM_INSPECT_MSG_LIST_COUNT = 37,  /* -> u32 */
    OM_INSPECT_MSG_LIST = 38,        /* -> item list record */

    /* From the server to an item's owner, a stop included: run head and request text -> 192-byte result. */
    OM_INSPECT_MSG_OWNER_RUN = 4
};

enum OmInspectEvent {
    OM_INSPECT_EVENT_RUN = 8, /* 192-byte result: a run began ("running", "begin") or ended */
    OM_INSPECT_EVENT_BUSY = 9 /* u32: 0 the server became busy, 1 it became idle */
};

#endif
