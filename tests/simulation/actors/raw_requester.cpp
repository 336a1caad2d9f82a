// Checks only the form of each reply; the model checks what is sent, the ledger what is got.
#include <cstring>

#include "actors/actors.h"
#include "actors/items.h"
#include "actors/raw.h"
#include "ominspect/messages.h"
#include "world/choices.h"
#include "world/journal.h"
#include "world/outcome.h"

namespace sim {

namespace {

// One that has registered an item leaves its runs unanswered.
uint32_t Ignore(TagMsgBlock* message) {
    if (IsLeftToLibraries() && message->msgId == OM_INSPECT_MSG_OWNER_RUN) {
        (void)OsMsgSynSendResp(message, nullptr, 0);
    }
    return 0;
}

// Whether a reply of this size answers that message.
bool IsAnswer(uint32_t id, size_t request, size_t reply) {
    switch (id) {
        case 0:
            return reply == (request == 0 ? 0 : 192);
        case 1:
            return reply == (request > 2 ? 6688 : 0);
        case 6:
        case 7:
        case 37:
            return reply == 4;
        case 19:
            return reply == (request > 2 ? 4 : 0);
        case 38:
            return reply == 12296;
        default:
            return reply == 0;
    }
}

bool Ask(uint32_t id, const std::string& payload, uint32_t param, uint32_t timeout, std::string* answer = nullptr) {
    const TagMsgBlock message = ToServer(id, payload, param);
    const Micros begin = Now();
    TagMsgBlock* reply = nullptr;
    const uint32_t result = OsMsgSynSend(&message, &reply, timeout);
    if (result != OS_MSG_OK) {
        if (Now() > begin + timeout * kMilli + kMilli) {
            Violation("a request lasted longer than its limit");
        }
        return false;
    }
    const size_t size = reply->dataLen;
    // A server that ran out of memory may answer with nothing.
    if (!IsAnswer(id, payload.size(), size) &&
        !(size == 0 && TheOutcome().faults[static_cast<size_t>(Fault::kNoMemory)] != 0)) {
        Violation("message " + std::to_string(id) + " of " + std::to_string(payload.size()) +
                  " bytes was answered with " + std::to_string(size) + " bytes");
    }
    if (answer != nullptr) {
        answer->assign(reinterpret_cast<const char*>(reply->data), size);
    }
    OsMsgSynRespFree(reply);
    return true;
}

void Post(uint32_t id, const std::string& payload, uint32_t param = 0) {
    const TagMsgBlock message = ToServer(id, payload, param);
    (void)OsMsgAsynSend(&message);
}

std::string PickGroup() {
    std::string payload;
    const uint32_t count = OneIn(16) ? 40 : 1 + Pick(4);
    for (uint32_t i = 0; i < count; ++i) {
        payload += PickRequest();
        payload += '\0';
    }
    if (!OneIn(8)) {
        payload += '\0';
    }
    return payload;
}

// A group's whole life, or a part of it.
void RunGroup(uint32_t& lastTask) {
    std::string answer;
    if (!Ask(19, PickGroup(), 0, 10000, &answer) || answer.size() != sizeof lastTask) {
        return;
    }
    std::memcpy(&lastTask, answer.data(), sizeof lastTask);
    if (OneIn(3) || !Rest()) {
        return;
    }
    (void)Ask(6, "", lastTask, 10000);
}

void Flood() {
    const uint32_t count = 1 + Pick(700);
    const std::string payload = PickRequest();
    const uint32_t id = PickOf(7U, 18U, 37U);
    for (uint32_t i = 0; i < count; ++i) {
        Post(id, payload);
    }
}

void PostAnything() {
    const uint32_t id = Pick(20);
    const std::string zeros(Pick(4), '\0');
    const std::string payload = zeros + PickRequest();
    Post(id, payload, Pick(5));
}

void DoOne(uint32_t& lastTask) {
    const uint32_t limit = PickOf(10000U, 1000U, 400000U, 1U);
    switch (Pick(16)) {
        default:
            Post(18, PickRequest());
            break;
        case 5:
        case 6:
            (void)Ask(0, PickRequest(), 0, limit);
            break;
        case 7:
        case 8:
            (void)Ask(7, PickItem(), 0, limit);
            break;
        case 9:
        case 10:
        case 11:
            RunGroup(lastTask);
            break;
        case 12:
            (void)Ask(6, "", OneIn(2) ? Pick(100) : lastTask + Pick(3), limit);
            break;
        case 13: {
            const uint32_t id = PickOf(37U, 38U, 1U, 1000U, 10U, 4U, 9999U);
            (void)Ask(id, PickGroup(), 0, limit);
            break;
        }
        case 14:
            PostAnything();
            break;
        case 15:
            if (TheManners().floods) {
                Flood();
            } else {
                Post(18, "");
            }
            break;
    }
}

}  // namespace

void RunRawRequester(const std::string& name) {
    if (!JoinRaw(name, Ignore)) {
        return;
    }
    uint32_t lastTask = 0;
    while (Rest()) {
        DoOne(lastTask);
    }
}

}  // namespace sim
