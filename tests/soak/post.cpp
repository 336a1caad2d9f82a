// Through the message layer alone: neither the client library nor the engine client sends floods.
#include "post.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "ominspect/records.h"
#include "support/eventually.h"

namespace soak {

namespace {

constexpr const char* kName = "soak";
constexpr const char* kServer = "ominspect";
constexpr const char* kServerTask = "iom_srv_task";
constexpr const char* kHeldItem = "soak_held";
constexpr uint32_t kLimitMs = 60000;

Post* g_post = nullptr;

TagMsgBlock Envelope(uint32_t id, const std::string& payload) {
    TagMsgBlock message{};
    std::snprintf(message.dstProcName, sizeof message.dstProcName, "%s", kServer);
    std::snprintf(message.dstTaskName, sizeof message.dstTaskName, "%s", kServerTask);
    std::snprintf(message.replyTaskName, sizeof message.replyTaskName, "%s", kName);
    message.msgId = id;
    // The API takes a pointer to what it only reads.
    message.data = reinterpret_cast<unsigned char*>(const_cast<char*>(payload.data()));
    message.dataLen = static_cast<uint32_t>(payload.size());
    return message;
}

void Must(uint32_t result, const char* what) {
    if (result != OS_MSG_OK) {
        throw std::runtime_error(std::string(what) + ": " + OsMsgResultText(result));
    }
}

}  // namespace

Post::Post() {
    g_post = this;
    Must(OsProcAttach(kName), "joining the bus");
    OsTaskDescriptor task{};
    std::snprintf(task.name, sizeof task.name, "%s", kName);
    task.queueDepth = 8192;
    task.handler = Handle;
    Must(OsTaskCreate(&task), "making a task");
    OsMsgSubscription subscription{};
    subscription.eventId = 9;
    std::snprintf(subscription.srcProcName, sizeof subscription.srcProcName, "%s", kServer);
    std::snprintf(subscription.srcTaskName, sizeof subscription.srcTaskName, "%s", kServerTask);
    std::snprintf(subscription.dstTaskName, sizeof subscription.dstTaskName, "%s", kName);
    Must(OsMsgSubscribeEvent(&subscription, 1, 0), "subscribing");
}

Post::~Post() {
    OsProcDetach();
    g_post = nullptr;
}

uint32_t Post::Handle(TagMsgBlock* message) {
    Post& post = *g_post;
    if (message->msgId == 9 && message->dataLen == sizeof(uint32_t)) {
        uint32_t idle = 0;
        std::memcpy(&idle, message->data, sizeof idle);
        post.idle_ = idle == 1;
    } else if (message->msgId == 0) {
        ++post.results_;
    } else if (message->msgId == 4 && OsMsgSynDeferResp(message) == OS_MSG_OK) {
        const std::lock_guard lock(post.lock_);
        post.held_ = *message;
    }
    return 0;
}

uint32_t Post::Ask(uint32_t id, const std::string& payload) {
    const TagMsgBlock message = Envelope(id, payload);
    TagMsgBlock* reply = nullptr;
    const uint32_t result = OsMsgSynSend(&message, &reply, kLimitMs);
    OsMsgSynRespFree(reply);
    return result;
}

uint32_t Post::Send(uint32_t id, const std::string& payload) {
    const TagMsgBlock message = Envelope(id, payload);
    return OsMsgAsynSend(&message);
}

void Post::Hold() {
    Must(Send(2, std::string(kHeldItem) + '\0'), "registering an item");
    Must(Send(0, std::string(R"({"name":")") + kHeldItem + R"(","cmd":"run"})"), "running it");
    const bool holds = support::Eventually([this] {
        const std::lock_guard lock(lock_);
        return held_.has_value();
    });
    if (!holds) {
        throw std::runtime_error("the server does not run an item");
    }
}

void Post::Release() {
    const std::lock_guard lock(lock_);
    tagKivoOmInspectionResult result{};
    std::snprintf(result.name, sizeof result.name, "%s", kHeldItem);
    std::snprintf(result.status, sizeof result.status, "success");
    Must(OsMsgSynSendResp(&*held_, &result, sizeof result), "answering a run");
    held_.reset();
}

}  // namespace soak
