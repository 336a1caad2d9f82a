// It may lie: answers that are too short or too long, without an end, of another name, or none at all.
#include <cstring>
#include <memory>

#include "actors/actors.h"
#include "actors/items.h"
#include "actors/owner_deeds.h"
#include "actors/raw.h"
#include "ominspect/messages.h"
#include "world/choices.h"
#include "world/outcome.h"

namespace sim {

namespace {

void Post(uint32_t id, const std::string& payload, uint32_t param = 0) {
    const TagMsgBlock message = ToServer(id, payload, param);
    (void)OsMsgAsynSend(&message);
}

void PostResult(const tagKivoOmInspectionResult& result) {
    Post(5, {reinterpret_cast<const char*>(&result), sizeof result});
}

void Lie(const TagMsgBlock& message) {
    Count(Fault::kOwnerLies);
    auto result = MakeRecord("another", "success", "a lie");
    switch (Pick(5)) {
        case 0:
            (void)OsMsgSynSendResp(&message, nullptr, 0);
            break;
        case 1:
            (void)OsMsgSynSendResp(&message, &result, 1 + Pick(sizeof result));
            break;
        case 2: {
            const std::string longer(sizeof result + 1 + Pick(1000), 'l');
            (void)OsMsgSynSendResp(&message, longer.data(), static_cast<uint32_t>(longer.size()));
            break;
        }
        case 3:
            std::memset(&result, 'u', sizeof result);  // no text ends
            (void)OsMsgSynSendResp(&message, &result, sizeof result);
            break;
        default:
            break;  // no answer
    }
}

// Answers from another thread, with a copy of the envelope.
void AnswerLater(const TagMsgBlock& message, const std::string& item) {
    if (OsMsgSynDeferResp(&message) != OS_MSG_OK) {
        return;
    }
    const InPlatform platform;
    Spawn(CurrentProcess(), "answer", [message, item] {
        {
            const InPlatform waiting;
            (void)Wait("its own work", nullptr, Now() + Pick(5000) * kMilli);
        }
        const auto result = Utter(item, "success", "deferred");
        (void)OsMsgSynSendResp(&message, &result, sizeof result);
    });
}

uint32_t Handle(TagMsgBlock* message) {
    if (message->msgId != OM_INSPECT_MSG_OWNER_RUN || message->dataLen < 37) {
        return 0;
    }
    const std::string item(reinterpret_cast<const char*>(message->data));
    const std::string request(reinterpret_cast<const char*>(message->data) + 36);
    if (TheManners().lies && OneIn(3)) {
        Lie(*message);
        return 0;
    }
    if (OneIn(8)) {
        AnswerLater(*message, item);
        return 0;
    }
    tagKivoOmInspectionResult result{};
    RunOwned(item, request, result, PostResult);
    (void)OsMsgSynSendResp(message, &result, sizeof result);
    return 0;
}

void RegisterAll(uint32_t number) {
    for (uint32_t i = 0; i < 3; ++i) {
        Post(2, std::string(OwnedItem(number * 2 + i)) + '\0', PickOf(0U, 1000U, 3500U, 60000U));
    }
}

void Babble(uint32_t number) {
    Count(Fault::kOwnerBabbles);
    const std::string item = PickItem();
    auto result = Utter(item, PickOf("running", "success", "idle", "fail"), "babble");
    switch (Pick(6)) {
        case 0:
            Post(5, std::string(Pick(400), 'b'));
            break;
        case 1:
            result.text[sizeof result.text - 1] = 'x';
            PostResult(result);
            break;
        case 2:
            Post(2, item, Pick(10000));
            break;
        case 3:
            RegisterAll(number);
            break;
        default:
            PostResult(result);
            break;
    }
}

}  // namespace

void RunRawOwner(const std::string& name, uint32_t number) {
    if (!JoinRaw(name, Handle)) {
        return;
    }
    RegisterAll(number);
    while (Rest()) {
        if (TheManners().babbles && OneIn(2)) {
            Babble(number);
        } else if (TheManners().unregisters && OneIn(4)) {
            Post(3, PickItem());
        } else if (OneIn(8)) {
            RegisterAll(number);
        }
    }
}

}  // namespace sim
