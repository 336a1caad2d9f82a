// The envelope is not a copy of the payload: the platform copies it during the send.
#include "base/send_result.h"

#include "base/log.h"
#include "kivo/os_bounds.h"
#include "kivo/os_msg.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};

}  // namespace

void SendASyncResult(unsigned int msgId, const InspectClientMsg& to, const unsigned char* data, unsigned int len) {
    TagMsgBlock envelope{};
    envelope.msgId = msgId;
    envelope.dataLen = len;
    envelope.data = const_cast<unsigned char*>(data);  // only read during the send
    if (strcpy_s(envelope.dstProcName, sizeof(envelope.dstProcName), to.procName.c_str()) != 0 ||
        strcpy_s(envelope.dstTaskName, sizeof(envelope.dstTaskName), to.taskName.c_str()) != 0) {
        INSPECT_ERROR("SendASyncMsg cpy err %u", msgId);
        return;
    }
    if (const uint32_t result = OsMsgAsynSend(&envelope); result != OS_MSG_OK) {
        INSPECT_ERROR("SendASyncResult send fail ret:#%x id:%u", result, msgId);
    }
}
