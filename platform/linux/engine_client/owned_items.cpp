// Asks every process under com.kivo.proc for its items, all at once, over a connection of its own: a process that does
// not answer holds up neither the others nor this process's messages.
#include <systemd/sd-bus.h>

#include <cerrno>
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
#include "ominspect/messages.h"

namespace {

using kivo::msg::BusError;
using kivo::msg::BusPtr;
using kivo::msg::MessagePtr;
using kivo::msg::SlotPtr;
using Clock = std::chrono::steady_clock;

// One process that was asked.
struct Question {
    std::string procName;
    std::string_view server;  // the connection of the server that runs now
    InspectOwnedItemTaker take;
    void* context;
    bool isOver = false;
    SlotPtr slot{};

    void Give(std::string_view item, uint32_t timeout, std::string_view registeredWith) const {
        InspectOwnedItem owned{};
        item.copy(owned.name, sizeof owned.name - 1);
        procName.copy(owned.procName, sizeof owned.procName - 1);
        owned.timeout = timeout;
        owned.registered = !registeredWith.empty() && registeredWith == server ? 1 : 0;
        take(&owned, context);
    }
};

uint64_t LeftOf(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<uint64_t>(left) : 0;
}

// Waits until the connection is made: sd_bus_call would wait for a daemon that hangs beyond any limit of its own. A
// negative errno on failure.
int AwaitConnection(sd_bus* bus, Clock::time_point deadline) {
    while (sd_bus_is_ready(bus) == 0) {
        const int worked = sd_bus_process(bus, nullptr);
        if (worked < 0) {
            return worked;
        }
        const uint64_t left = LeftOf(deadline);
        if (left == 0) {
            return -ETIMEDOUT;
        }
        if (worked == 0) {
            (void)sd_bus_wait(bus, left);
        }
    }
    return 0;
}

// Asks the bus daemon, with at most one text as argument. A negative errno on failure.
int AskDaemon(sd_bus* bus, const char* method, const char* argument, Clock::time_point deadline, MessagePtr& answer) {
    sd_bus_message* raw = nullptr;
    int result = sd_bus_message_new_method_call(bus, &raw, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                "org.freedesktop.DBus", method);
    const MessagePtr call(raw);
    if (result >= 0 && argument != nullptr) {
        result = sd_bus_message_append(call.get(), "s", argument);
    }
    BusError error;
    sd_bus_message* received = nullptr;
    // sd_bus_call takes a limit of 0 for its own default, which is far longer.
    const uint64_t left = LeftOf(deadline);
    if (result >= 0) {
        result = left > 0 ? sd_bus_call(bus, call.get(), left, error.Out(), &received) : -ETIMEDOUT;
    }
    answer.reset(received);
    return result;
}

// What a process answers. One without such an object, or gone by now, has nothing to tell.
int OnAnswer(sd_bus_message* answer, void* userdata, sd_bus_error* /*error*/) {
    auto& question = *static_cast<Question*>(userdata);
    question.isOver = true;
    if (sd_bus_message_is_method_error(answer, nullptr) > 0 ||
        sd_bus_message_enter_container(answer, SD_BUS_TYPE_VARIANT, kivo::engine::kItemsType) < 0 ||
        sd_bus_message_enter_container(answer, SD_BUS_TYPE_ARRAY, "(sus)") < 0) {
        return 1;
    }
    const char* item = nullptr;
    uint32_t timeout = 0;
    const char* server = nullptr;
    while (sd_bus_message_read(answer, "(sus)", &item, &timeout, &server) > 0) {
        if (*item != '\0' && std::strlen(item) < OM_INSPECT_NAME_SIZE) {
            question.Give(item, timeout, server);
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
            question.Give("", 0, "");
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
    MessagePtr list;
    result = AwaitConnection(bus.get(), deadline);
    if (result >= 0) {
        result = AskDaemon(bus.get(), "ListNames", nullptr, deadline, list);
    }
    if (result < 0) {
        return result;
    }
    MessagePtr owner;
    const char* server = "";
    if (AskDaemon(bus.get(), "GetNameOwner", kivo::msg::BusNameOf(OM_INSPECT_PROC_NAME).c_str(), deadline, owner) >=
        0) {
        (void)sd_bus_message_read_basic(owner.get(), SD_BUS_TYPE_STRING, &server);
    }
    std::list<Question> questions;
    sd_bus_message_enter_container(list.get(), SD_BUS_TYPE_ARRAY, "s");
    const char* busName = nullptr;
    while (result >= 0 && sd_bus_message_read_basic(list.get(), SD_BUS_TYPE_STRING, &busName) > 0) {
        std::string procName = kivo::msg::ProcNameOf(busName);
        if (!procName.empty()) {
            result =
                Ask(bus.get(), busName, questions.emplace_back(Question{std::move(procName), server, take, context}));
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
