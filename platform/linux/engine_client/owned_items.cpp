// Asks every process under com.kivo.proc for its items, all at once, over a connection of its own: a process that does
// not answer holds up neither the others nor this process's messages.
#include <systemd/sd-bus.h>

#include <chrono>
#include <cstring>
#include <list>
#include <new>
#include <string>
#include <string_view>

#include "engine_client/items_property.h"
#include "kivo/om_inspect_engine_client.h"
#include "kivo/os_msg.h"
#include "msg/handles.h"
#include "msg/names.h"
#include "msg/open_bus.h"

namespace {

using kivo::msg::BusError;
using kivo::msg::BusPtr;
using kivo::msg::MessagePtr;
using kivo::msg::SlotPtr;
using Clock = std::chrono::steady_clock;

// One process that was asked.
struct Question {
    std::string procName;
    InspectOwnedItemTaker take;
    void* context;
    bool isOver = false;
    SlotPtr slot{};

    void Give(std::string_view item, uint32_t timeout) const {
        InspectOwnedItem owned{};
        item.copy(owned.name, sizeof owned.name - 1);
        procName.copy(owned.procName, sizeof owned.procName - 1);
        owned.timeout = timeout;
        take(&owned, context);
    }
};

uint64_t LeftOf(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<uint64_t>(left) : 0;
}

// What a process answers. One without such an object, or gone by now, has nothing to tell.
int OnAnswer(sd_bus_message* answer, void* userdata, sd_bus_error* /*error*/) {
    auto& question = *static_cast<Question*>(userdata);
    question.isOver = true;
    if (sd_bus_message_is_method_error(answer, nullptr) > 0 ||
        sd_bus_message_enter_container(answer, SD_BUS_TYPE_VARIANT, kivo::engine::kItemsType) < 0 ||
        sd_bus_message_enter_container(answer, SD_BUS_TYPE_ARRAY, "(su)") < 0) {
        return 1;
    }
    const char* item = nullptr;
    uint32_t timeout = 0;
    while (sd_bus_message_read(answer, "(su)", &item, &timeout) > 0) {
        if (*item != '\0' && std::strlen(item) < OM_INSPECT_NAME_SIZE) {
            question.Give(item, timeout);
        }
    }
    return 1;
}

int Ask(sd_bus* bus, const char* busName, Question& question) {
    sd_bus_message* raw = nullptr;
    int result = sd_bus_message_new_method_call(bus, &raw, busName, kivo::engine::kItemsPath,
                                                "org.freedesktop.DBus.Properties", "Get");
    const MessagePtr call(raw);
    if (result >= 0) {
        result = sd_bus_message_set_auto_start(raw, 0);
    }
    if (result >= 0) {
        result = sd_bus_message_append(raw, "ss", kivo::engine::kItemsInterface, kivo::engine::kItemsProperty);
    }
    sd_bus_slot* slot = nullptr;
    if (result >= 0) {
        result = sd_bus_call_async(bus, &slot, raw, OnAnswer, &question, UINT64_MAX);
    }
    question.slot.reset(slot);
    return result;
}

// Waits for the answers until the deadline.
int AwaitAnswers(sd_bus* bus, std::list<Question>& questions, Clock::time_point deadline) {
    for (Question& question : questions) {
        while (!question.isOver) {
            const int worked = sd_bus_process(bus, nullptr);
            if (worked < 0) {
                return worked;
            }
            const uint64_t left = LeftOf(deadline);
            if (worked > 0) {
                continue;
            }
            if (left > 0) {
                (void)sd_bus_wait(bus, left);
                continue;
            }
            question.slot.reset();  // an answer that comes now is too late
            question.isOver = true;
            question.Give("", 0);
        }
    }
    return 0;
}

int AskAll(InspectOwnedItemTaker take, void* context, uint32_t timeoutMs) {
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    BusPtr bus;
    int result = kivo::msg::OpenBus(bus);
    if (result < 0) {
        return result;
    }
    BusError error;
    sd_bus_message* raw = nullptr;
    MessagePtr list;
    sd_bus_message* call = nullptr;
    result = sd_bus_message_new_method_call(bus.get(), &call, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                            "org.freedesktop.DBus", "ListNames");
    const MessagePtr owner(call);
    if (result >= 0) {
        result = sd_bus_call(bus.get(), call, LeftOf(deadline), error.Out(), &raw);
    }
    list.reset(raw);
    if (result < 0) {
        return result;
    }
    std::list<Question> questions;
    sd_bus_message_enter_container(list.get(), SD_BUS_TYPE_ARRAY, "s");
    const char* busName = nullptr;
    while (result >= 0 && sd_bus_message_read_basic(list.get(), SD_BUS_TYPE_STRING, &busName) > 0) {
        std::string procName = kivo::msg::ProcNameOf(busName);
        if (!procName.empty()) {
            result = Ask(bus.get(), busName, questions.emplace_back(Question{std::move(procName), take, context}));
        }
    }
    return result >= 0 ? AwaitAnswers(bus.get(), questions, deadline) : result;
}

}  // namespace

uint32_t InspectForEachOwnedItem(InspectOwnedItemTaker take, void* context, uint32_t timeoutMs) {
    if (take == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    try {
        const int result = AskAll(take, context, timeoutMs);
        if (result == -ENOMEM) {
            return OS_MSG_ERR_NO_MEMORY;
        }
        return result < 0 ? OS_MSG_ERR_NO_BUS : OS_MSG_OK;
    } catch (const std::bad_alloc&) {
        return OS_MSG_ERR_NO_MEMORY;
    }
}
