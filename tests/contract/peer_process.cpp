#include "peer_process.h"

#include <cstring>
#include <vector>

namespace support {

namespace {

uint32_t Echo(TagMsgBlock* message) {
    return OsMsgSynSendResp(message, message->data, message->dataLen);
}

uint32_t Mirror(TagMsgBlock* message) {
    return OsMsgSynSendResp(message, message, sizeof(*message));
}

uint32_t PassOn(TagMsgBlock* message) {
    TagMsgBlock copy{};
    copy.msgId = message->msgId;
    std::memcpy(copy.dstProcName, message->srcProcName, sizeof(copy.dstProcName));
    std::memcpy(copy.dstTaskName, message->replyTaskName, sizeof(copy.dstTaskName));
    OsMsgAsynSend(&copy);  // refused when no task is named
    return 0;
}

// Waits for an answer of task "gate" of the sender.
void VisitGate(const TagMsgBlock& message) {
    TagMsgBlock question{};
    std::memcpy(question.dstProcName, message.srcProcName, sizeof(question.dstProcName));
    std::memcpy(question.dstTaskName, "gate", 5);
    TagMsgBlock* answer = nullptr;
    OsMsgSynSend(&question, &answer, 3600000);
    OsMsgSynRespFree(answer);
}

uint32_t Collect(TagMsgBlock* message) {
    thread_local std::vector<uint32_t> ids;  // of this task of this process
    if (message->msgId == kReport) {
        return OsMsgSynSendResp(message, ids.data(), static_cast<uint32_t>(ids.size() * sizeof(uint32_t)));
    }
    ids.push_back(message->msgId);
    if (message->msgId == kVisitGate) {
        VisitGate(*message);
    }
    return 0;
}

uint32_t CarryOut(const Order& order, TagMsgBlock** reply) {
    switch (order.kind) {
        case Order::Kind::kAsk:
            return OsMsgSynSend(&order.envelope, reply, order.timeoutMs);
        case Order::Kind::kPost:
            return OsMsgAsynSend(&order.envelope);
        case Order::Kind::kBroadcast:
            break;
    }
    const OsMsgEvent event{"relay", order.envelope.msgId, order.envelope.dataLen, order.envelope.data};
    return OsMsgBroadcastEvent(&event, 1);
}

uint32_t Relay(TagMsgBlock* message) {
    Order order;
    if (message->dataLen < sizeof(order)) {
        return 1;
    }
    std::memcpy(&order, message->data, sizeof(order));
    order.envelope.data = message->data + sizeof(order);
    order.envelope.dataLen = message->dataLen - static_cast<uint32_t>(sizeof(order));
    PeerOutcome outcome;
    TagMsgBlock* reply = nullptr;
    for (uint32_t i = 0; i < order.count; ++i, ++order.envelope.msgId) {
        OsMsgSynRespFree(reply);
        reply = nullptr;
        outcome.result = CarryOut(order, &reply);
        outcome.good += outcome.result == OS_MSG_OK ? 1 : 0;
    }
    std::vector<unsigned char> answer(sizeof(outcome));
    std::memcpy(answer.data(), &outcome, sizeof(outcome));
    if (reply != nullptr && reply->dataLen != 0) {
        answer.insert(answer.end(), reply->data, reply->data + reply->dataLen);
    }
    OsMsgSynRespFree(reply);
    return OsMsgSynSendResp(message, answer.data(), static_cast<uint32_t>(answer.size()));
}

uint32_t EndNow(TagMsgBlock* message) {
    EndAbruptly(message->dstProcName);
    return 0;
}

uint32_t Leave(TagMsgBlock* /*message*/) {
    OsProcRequestDetach();
    return 0;
}

}  // namespace

uint32_t RunPeer(const std::string& procName) {
    const OsTaskDescriptor tasks[] = {
        {"echo", 0, 64, Echo, nullptr},      {"mirror", 0, 64, Mirror, nullptr}, {"silent", 0, 64, PassOn, nullptr},
        {"collect", 0, 4, Collect, nullptr}, {"relay", 0, 64, Relay, nullptr},   {"die", 0, 64, EndNow, nullptr},
        {"leave", 0, 64, Leave, nullptr},
    };
    return OsTaskRun(procName.c_str(), tasks, sizeof(tasks) / sizeof(tasks[0]));
}

}  // namespace support
