// The reply task is the one task that such a process has.
#include "actors/raw.h"

#include "common/msg_rules.h"

namespace sim {

TagMsgBlock ToServer(uint32_t id, const std::string& payload, uint32_t param) {
    TagMsgBlock message{};
    message.msgId = id;
    message.param = param;
    kivo::WriteName(message.dstProcName, "ominspect");
    kivo::WriteName(message.dstTaskName, "iom_srv_task");
    kivo::WriteName(message.replyTaskName, kRawTask);
    message.dataLen = static_cast<uint32_t>(payload.size());
    message.data = reinterpret_cast<unsigned char*>(const_cast<char*>(payload.data()));
    return message;
}

bool JoinRaw(const std::string& name, OsTaskHandler handler) {
    if (OsProcAttach(name.c_str()) != OS_MSG_OK) {
        return false;
    }
    const OsTaskDescriptor task{"raw", 0, 64, handler, nullptr};
    return OsTaskCreate(&task) == OS_MSG_OK;
}

}  // namespace sim
