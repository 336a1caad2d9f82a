// English texts of the message layer's result codes.
#include "kivo/os_msg.h"

const char* OsMsgResultText(uint32_t result) {
    switch (result) {
        case OS_MSG_OK:
            return "ok";
        case OS_MSG_ERR_PARAM:
            return "bad argument";
        case OS_MSG_ERR_NO_MEMORY:
            return "no memory, threads or descriptors left";
        case OS_MSG_ERR_NOT_ATTACHED:
            return "the process is not on the bus";
        case OS_MSG_ERR_ATTACHED:
            return "the process is on the bus already";
        case OS_MSG_ERR_NAME_TAKEN:
            return "the name is taken";
        case OS_MSG_ERR_NO_BUS:
            return "the bus cannot be reached";
        case OS_MSG_ERR_ABSENT:
            return "the destination process is not there";
        case OS_MSG_ERR_NO_TASK:
            return "the destination process has no such task";
        case OS_MSG_ERR_DIED:
            return "the destination left the bus while it was asked";
        case OS_MSG_ERR_TIMEOUT:
            return "no reply in time";
        case OS_MSG_ERR_QUEUE_FULL:
            return "the destination task's queue is full";
        case OS_MSG_ERR_TOO_LARGE:
            return "the payload is too large";
        case OS_MSG_ERR_DENIED:
            return "the bus's policy forbids it";
        case OS_MSG_ERR_NO_REQUEST:
            return "nobody waits for this reply";
        case OS_MSG_ERR_BUS:
            return "the bus answered with an error";
        default:
            return "unknown result";
    }
}
